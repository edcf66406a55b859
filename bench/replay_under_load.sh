#!/usr/bin/env bash
# Replays one capture 200 times in a row while every core is kept busy, and
# counts the runs that delivered fewer packets than the capture holds.
#   bench/replay_under_load.sh [--build DIR] [--runs N] [CAPTURE]
# DIR is build/ by default (build-asan/ for the sanitized build); CAPTURE is
# the qmdl example of the shared captures. Exits 1 when a run lost packets.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$root/build
runs=200
capture=$root/../shared/captures/mi-core_qmdl_example.qmdl
while (($#)); do
    case $1 in
        --build) build=$2; shift 2 ;;
        --runs) runs=$2; shift 2 ;;
        -h|--help) sed -n '2,7p' "$0"; exit 0 ;;
        *) capture=$1; shift ;;
    esac
done
program=$build/bin/replay_loss
[ -x "$program" ] || { echo "replay_under_load: $program is not built (scripts/setup.sh $build)" >&2; exit 2; }
[ -r "$capture" ] || { echo "replay_under_load: no capture at $capture" >&2; exit 2; }

# The hog: stress-ng when installed, else a busy shell loop per core.
cores=$(nproc 2>/dev/null || echo 2)
hogs=()
if command -v stress-ng >/dev/null; then
    stress-ng --cpu "$cores" --quiet &
    hogs+=($!)
else
    for _ in $(seq "$cores"); do
        (while :; do :; done) &
        hogs+=($!)
    done
fi
trap 'kill "${hogs[@]}" 2>/dev/null || true' EXIT
echo "replay_under_load: $cores busy cores, $(cut -d' ' -f1 /proc/loadavg) load"

"$program" "$capture" "$runs"
