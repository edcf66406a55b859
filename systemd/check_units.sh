#!/usr/bin/env bash
# Checks the units with systemd-analyze verify, their programs taken from
# the build directory given as $1 (its bin/). Exits 77 (skipped) where
# systemd-analyze is not available.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
bin_dir=${1:?usage: check_units.sh BUILD_DIR}/bin
if ! command -v systemd-analyze >/dev/null; then
    echo "check_units: systemd-analyze is not available; skipped"
    exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for unit in "$here"/*.service; do
    sed "s|/usr/local/bin/|$bin_dir/|g" "$unit" >"$work/$(basename "$unit")"
done
# verify also loads the units these ones name; run it on the copies only.
cd "$work"
if ! out=$(SYSTEMD_LOG_LEVEL=warning systemd-analyze verify --man=no ./*.service 2>&1); then
    echo "$out"
    exit 1
fi
# Warnings about units this system lacks (no multi-user target in a
# container) are not ours; any line naming our units is.
if echo "$out" | grep -E 'ppsd\.service|radio_tavora\.service'; then exit 1; fi
echo "check_units: ok"
