#!/usr/bin/env bash
# The demo: sets up and builds, then starts the PPS broker, devsim (the
# phone's other services), the simulated modem and radio_tavora, switches
# the modem channels on the way the field-test screen does, and shows the
# reports as they change.
#
#   scripts/demo.sh [--capture FILE] [--devsim-scenario FILE] [--rounds N] [--interval SEC] [--web ADDR:PORT]
#
#   --capture FILE  modemsim streams the log packets of this DIAG capture
#                   (.qmdl/.mi2log) instead of its own scenario; a capture
#                   with LTE packets (serving cell 0xB0C2, measurements
#                   0xB179, UE identity 0xB0EE, RLC 0xB081/0xB087/...) is
#                   replayed into the LTE report, lteopinfo, as well
#   --devsim-scenario FILE  merged over devsim's built-in scenario
#   --rounds N      rounds of reports to show (default 10; 0 = until Ctrl-C)
#   --interval SEC  seconds between rounds (default 2)
#   --web ADDR:PORT where the web screen listens (default 127.0.0.1:8080)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
capture=""
devsim_scenario=""
rounds=10
interval=2
web=127.0.0.1:8080
while (($#)); do
    case "$1" in
        --capture) capture=$(realpath "$2"); shift 2 ;;
        --devsim-scenario) devsim_scenario=$(realpath "$2"); shift 2 ;;
        --rounds) rounds=$2; shift 2 ;;
        --interval) interval=$2; shift 2 ;;
        --web) web=$2; shift 2 ;;
        -h|--help) sed -n '2,17p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
        *) echo "demo: unknown option $1 (see --help)" >&2; exit 2 ;;
    esac
done

"$root/scripts/setup.sh" "$root/build"
bin=$root/build/bin

run=$(mktemp -d "${TMPDIR:-/tmp}/radio_tavora-demo.XXXXXX")
pids=()
stop_all() {
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null || true; done
    wait 2>/dev/null || true
    echo "demo: stopped; logs kept in $run, recordings in $run/recordings"
}
trap stop_all EXIT
trap 'exit 130' INT TERM

wait_for() {  # wait_for FILE TEXT: until TEXT shows in FILE (10 s at most)
    for _ in $(seq 1 100); do
        grep -q -- "$2" "$1" 2>/dev/null && return 0
        sleep 0.1
    done
    echo "demo: '$2' did not show in $1:" >&2
    tail -n 20 "$1" >&2
    exit 1
}

export PPS_SOCKET=$run/ppsd.sock
mkdir -p "$run/store"
echo "demo: broker on $PPS_SOCKET"
"$bin/ppsd" --socket "$PPS_SOCKET" --store "$run/store" 2>"$run/ppsd.log" &
pids+=($!)
for _ in $(seq 1 100); do [ -S "$PPS_SOCKET" ] && break; sleep 0.05; done

# The screen's settings object.
"$bin/ppsctl" write /pps/services/radioctrl/modem0/diag/config diaglogmask::0

# The rest of the phone: the device's hardware ID (a WCDMA and LTE device),
# the modem's persistent status and radio control, the connection service,
# the network interfaces and the OMA-DM client.
devsim_args=()
[ -n "$devsim_scenario" ] && devsim_args+=(--scenario "$devsim_scenario")
echo "demo: devsim ${devsim_args[*]} (log: $run/devsim.log)"
"$bin/devsim" "${devsim_args[@]}" 2>"$run/devsim.log" &
pids+=($!)
wait_for "$run/devsim.log" "devsim: ready"

# The modem refuses EVDO throttling (message 0x18), so one refused setting
# is written back to the screen.
echo '{"qmi": {"refuse": {"0x18": 71}}}' >"$run/modemsim-settings.json"
modemsim_args=(--qmi "unix:$run/qmi.sock" --diag "unix:$run/diag.sock"
    --scenario "$run/modemsim-settings.json")
[ -n "$capture" ] && modemsim_args+=(--capture "$capture")
echo "demo: modemsim ${modemsim_args[*]}"
"$bin/modemsim" "${modemsim_args[@]}" 2>"$run/modemsim.log" &
pids+=($!)
for _ in $(seq 1 100); do [ -S "$run/qmi.sock" ] && break; sleep 0.05; done

# Tethering runs the platform's shell tools: logging stand-ins, first on
# the daemon's PATH, write what they are asked to a log and change nothing
# on this machine; route shows a routing table with an IPv6 prefix.
echo "demo: radio_tavora (log: $run/radio_tavora.log; its shell tools log to $run/tools.log)"
PATH="$root/tools/shellstandins:$PATH" SHELL_STANDINS_LOG="$run/tools.log" \
    SHELL_STANDINS_ROUTES="$root/tools/shellstandins/routes.example" \
    QMI_DEVICE="unix:$run/qmi.sock" DIAG_DEVICE="unix:$run/diag.sock" SLOGF_STDERR=1 \
    "$bin/radio_tavora" 2>"$run/radio_tavora.log" &
pids+=($!)
wait_for "$run/radio_tavora.log" "tavora_pps started successfully."

# gpsd, fed the project's NMEA track by gpsfake (a loop, replayed until the
# demo stops), gives each sample its position.
serve_args=(--record "$run/recordings")
if command -v gpsfake >/dev/null; then
    gpsd_port=$((20000 + RANDOM % 20000))
    PATH="$PATH:/usr/sbin" gpsfake -q -P "$gpsd_port" -c 0.5 "$root/tools/fieldtest/drive_track.nmea" \
        >"$run/gpsfake.log" 2>&1 &
    pids+=($!)
    serve_args+=(--gpsd "127.0.0.1:$gpsd_port")
    echo "demo: gpsd (gpsfake) on port $gpsd_port replays tools/fieldtest/drive_track.nmea"
else
    echo "demo: gpsfake is not installed (gpsd-clients): the screen shows no position"
fi

# The web screen: the same reports live in a browser, with plots, the track
# and the settings; every sample is recorded to CSV as it is taken.
"$bin/fieldtest" serve --listen "$web" --interval "$interval" "${serve_args[@]}" \
    >"$run/fieldtest-serve.log" 2>&1 &
pids+=($!)
for _ in $(seq 1 50); do
    grep -q "the field-test screen is on" "$run/fieldtest-serve.log" 2>/dev/null && break
    sleep 0.1
done
if grep -q "the field-test screen is on" "$run/fieldtest-serve.log"; then
    echo "demo: the field-test screen is on http://$web/ (open it in a browser)"
    echo "demo: recording every sample to $run/recordings/ (CSV, one file per start or hour)"
else
    echo "demo: no web screen: $(cat "$run/fieldtest-serve.log")" >&2
fi

echo
echo "== before any setting: the modem channels are closed =="
"$bin/fieldtest" radiostats 3gpp2info

echo
echo "== the screen turns the log mask on and sets ENS =="
"$bin/fieldtest" set diaglogmask=1 ens_value=1
wait_for "$run/radio_tavora.log" "LTE Log Config"
echo "-- what modemsim received:"
grep -E 'rx' "$run/modemsim.log" | tail -n 5 || true

echo
echo "== the screen chooses LTE only: the daemon asks the radio control service =="
"$bin/fieldtest" set enabled_rats=LTE_ONLY
wait_for "$run/devsim.log" "wrote /pps/services/radioctrl/modem0/status_persistent: .*:16}"
echo "-- what devsim received and reported:"
grep -E 'devsim: (rx|wrote /pps/services/radioctrl)' "$run/devsim.log" | tail -n 2 || true
"$bin/ppsctl" read /pps/services/radioctrl/modem0/status_persistent

echo
echo "== the screen chooses CDMA only, which this WCDMA and LTE device cannot take =="
"$bin/fieldtest" set enabled_rats=CDMA_ONLY
echo "-- the menu shows LTE_ONLY again, and radio control is sent it once more:"
grep -E 'devsim: rx /pps/services/radioctrl' "$run/devsim.log" | tail -n 1 || true

echo
echo "== the screen turns USB tethering on, then off =="
"$bin/fieldtest" set tether_enable=1 >/dev/null
wait_for "$run/tools.log" "route add"
"$bin/fieldtest" set tether_enable=0 >/dev/null
wait_for "$run/tools.log" "ip6.forwarding=0"
echo "-- the command lines the daemon ran (the tools are stand-ins):"
cat "$run/tools.log"

echo
echo "== the screen sets IMS test mode, 1x and EVDO throttling; the modem refuses EVDO =="
"$bin/fieldtest" set ims_enable=1 onex_enable=1 evdo_enable=1
echo "-- what modemsim received (0x1a IMS, 0x16 1x set, 0x15 1x read-back, 0x18 EVDO):"
grep -E 'msg=0x(1a|16|15|18)' "$run/modemsim.log" | tail -n 4 || true

echo
echo "== the screen sets the internet APN; the connection service takes it =="
"$bin/fieldtest" set apn_name=demo.internet >/dev/null
echo "-- what the connection service received, and the internet PDN now:"
grep -E 'devsim: rx /pps/services/cds/vesta/control' "$run/devsim.log" | tail -n 2 || true
"$bin/ppsctl" read /pps/services/cds/vesta/status | grep -E '^internet:' || true

if [ -n "$capture" ]; then
    echo
    echo "note: the WCDMA reports follow WCDMA log packets; the public captures hold"
    echo "      none, so their log values stay 'No data available!' while the modem's"
    echo "      measurements still come from modemsim's world. modemsim's progress"
    echo "      through the capture is shown after the reports. lteopinfo reads the"
    echo "      capture's LTE packets; its GERAN neighbours still come from modemsim's"
    echo "      LTE world."
fi

# The LTE report, once on its own: a daemon without it answers with an
# error or not at all, and then the live rounds go on without it rather
# than wait for it every round.
reports=(radionwinfo radiostats umtsopinfo hspaopinfo bearer tchtxpwr 3gpp2info)
echo
echo "== the LTE report =="
# The modem logs each LTE code once a period after the mask went on: give
# the serving cell a few seconds to arrive before showing the report.
for _ in $(seq 1 15); do
    "$bin/fieldtest" --timeout 3 lteopinfo 2>/dev/null | grep -qE '^ *lte_pci +[0-9]' && break
    sleep 0.2
done
if "$bin/fieldtest" --timeout 3 lteopinfo; then
    reports+=(lteopinfo)
else
    echo "demo: lteopinfo got no answer from this radio_tavora; the rounds go on without it"
fi

echo
echo "== live reports (Ctrl-C to stop) =="
watch_args=(--interval "$interval")
((rounds > 0)) && watch_args+=(--count "$rounds")
# The worlds move. WCDMA: signal values drift, and every few seconds a soft
# handover changes the active set; every 30 s a location update shows in
# umtsopinfo, every 20 s a new RAB in bearer and apn1_pdp_qos. LTE: RSRP,
# RSRQ and the neighbours drift, the RLC counters grow, and every 15 s the
# phone hands over to another PCI.
"$bin/fieldtest" watch "${watch_args[@]}" "${reports[@]}" || true
if [ -n "$capture" ]; then
    echo "-- modemsim's capture playback:"
    grep -E 'diag capture' "$run/modemsim.log" | tail -n 3 || true
fi

echo
echo "== what the DIAG library delivered, translated and dropped (per code and version) =="
"$bin/fieldtest" dmstats || true
