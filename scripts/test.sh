#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite.
#   scripts/test.sh              normal build in build/
#   scripts/test.sh --sanitize   AddressSanitizer + UBSan build in build-asan/
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=$root/build
cmake_args=()
if [ "${1:-}" = "--sanitize" ]; then
    build_dir=$root/build-asan
    cmake_args=(-DRT_SANITIZE=ON -DRT_BENCHMARKS=OFF -DCMAKE_BUILD_TYPE=Debug)
    export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
    export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
fi

# The web screen's browser test drives a headless Chromium; the fleet test
# publishes to its real MQTT broker with mosquitto's own clients. (setup.sh
# installs the rest the tests talk to: libqmi's qmicli and qmi-proxy, gpsd
# with gpsfake, mosquitto.)
"$root/scripts/install_packages.sh" test chromium chromium-driver python3-selenium mosquitto-clients
"$root/scripts/setup.sh" "$build_dir" "${cmake_args[@]}"
cd "$build_dir"
ctest --output-on-failure -j "$(nproc 2>/dev/null || echo 2)" --timeout 300
