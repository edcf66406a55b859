#!/usr/bin/env bash
# Checks the units with systemd-analyze verify, their programs taken from
# the build directory given as $1 (its bin/). Exits 77 (skipped) where
# systemd-analyze is not available. Before that, the broker unit's readiness
# check itself: it must fail on a stale socket file that nothing listens on,
# and pass once ppsd answers there.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
bin_dir=${1:?usage: check_units.sh BUILD_DIR}/bin
work=$(mktemp -d)
ppsd_pid=
trap '[ -z "$ppsd_pid" ] || kill "$ppsd_pid"; rm -rf "$work"' EXIT
for unit in "$here"/*.service; do
    sed "s|/usr/local/bin/|$bin_dir/|g; s|/run/ppsd/ppsd.sock|$work/ppsd.sock|g" "$unit" \
        >"$work/$(basename "$unit")"
done

ready_check=$(sed -n 's/^ExecStartPost=//p' "$work/ppsd.service")
# With fewer tries: a failing check need not take its whole ten seconds here.
ready_check=${ready_check/seq 100/seq 10}
export PPS_SOCKET=$work/ppsd.sock
python3 -c 'import socket, sys; socket.socket(socket.AF_UNIX).bind(sys.argv[1])' "$PPS_SOCKET"
if eval "$ready_check"; then
    echo "check_units: the readiness check passed on a stale socket"
    exit 1
fi
rm -f "$PPS_SOCKET"
"$bin_dir/ppsd" --socket "$PPS_SOCKET" --store "$work/store" --quiet &
ppsd_pid=$!
if ! eval "$ready_check"; then
    echo "check_units: the readiness check failed with ppsd running"
    exit 1
fi

if ! command -v systemd-analyze >/dev/null; then
    echo "check_units: systemd-analyze is not available; skipped"
    exit 77
fi
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
