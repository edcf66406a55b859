#!/usr/bin/env bash
# Installs what the build needs (Debian packages, only those missing) and
# builds the project into build/ (or the directory given as $1, with any
# further arguments passed to cmake). Safe to run again: it only does what
# is left to do.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${1:-$root/build}
shift || true

packages=(g++ cmake ninja-build pkg-config clang-format libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
if ((${#missing[@]})); then
    echo "setup: installing ${missing[*]}"
    sudo=()
    if [ "$(id -u)" -ne 0 ]; then sudo=(sudo); fi
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

jobs=$(nproc 2>/dev/null || echo 2)
if [ ! -f "$build_dir/build.ninja" ]; then
    cmake -S "$root" -B "$build_dir" -G Ninja "$@"
elif (($#)); then
    cmake "$build_dir" "$@"
fi
echo "setup: building in $build_dir"
cmake --build "$build_dir" -j "$jobs"
