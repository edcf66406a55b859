#!/usr/bin/env bash
# Installs what the build needs (Debian packages, only those missing) and
# builds the project into build/ (or the directory given as $1, with any
# further arguments passed to cmake). Safe to run again: it only does what
# is left to do.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${1:-$root/build}
shift || true

# libcpp-httplib-dev, libjs-chart.js and libjs-leaflet: fieldtest serve's HTTP
# server, plots and track; gpsd and gpsd-clients (gpsfake): the demo's position;
# libmosquitto-dev: fieldtest publish and serve --mqtt; mosquitto: the demo's
# MQTT broker; libqmi-utils: qmi-proxy, for QMI_DEVICE=qmi-proxy:... next to
# ModemManager, and qmicli, which the tests check modemsim and the daemon with.
packages=(g++ cmake ninja-build pkg-config clang-format libgtest-dev libgmock-dev libbenchmark-dev
    nlohmann-json3-dev libcpp-httplib-dev libjs-chart.js libjs-leaflet gpsd gpsd-clients
    libmosquitto-dev mosquitto libqmi-utils)

"$root/scripts/install_packages.sh" setup "${packages[@]}"

jobs=$(nproc 2>/dev/null || echo 2)
if [ ! -f "$build_dir/build.ninja" ]; then
    cmake -S "$root" -B "$build_dir" -G Ninja "$@"
elif (($#)); then
    cmake "$build_dir" "$@"
fi
echo "setup: building in $build_dir"
cmake --build "$build_dir" -j "$jobs"
