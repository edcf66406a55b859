#!/usr/bin/env bash
# The demo: sets up and builds, then starts two simulated devices (each its
# PPS broker, devsim for the phone's other services, the simulated modem and
# radio_tavora), a local mosquitto they publish their reports to, and the
# web screen showing both; then switches the first device's modem channels
# on the way the field-test screen does, and shows the reports as they change.
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

# One simulated device in $run/NAME: its PPS broker, the screen's settings
# object, devsim (the rest of the phone: the device's hardware ID, the
# modem's persistent status and radio control, the connection service, the
# network interfaces and the OMA-DM client), modemsim with SCENARIO (JSON
# merged over its own) and radio_tavora.
#   start_device NAME SCENARIO
start_device() {
    local name=$1 scenario=$2 dir=$run/$1
    mkdir -p "$dir/store"
    local sock=$dir/ppsd.sock
    echo "demo: $name: broker on $sock"
    "$bin/ppsd" --socket "$sock" --store "$dir/store" 2>"$dir/ppsd.log" &
    pids+=($!)
    for _ in $(seq 1 100); do [ -S "$sock" ] && break; sleep 0.05; done
    PPS_SOCKET=$sock "$bin/ppsctl" write /pps/services/radioctrl/modem0/diag/config diaglogmask::0

    local devsim_args=()
    [ -n "$devsim_scenario" ] && devsim_args+=(--scenario "$devsim_scenario")
    echo "demo: $name: devsim ${devsim_args[*]} (log: $dir/devsim.log)"
    PPS_SOCKET=$sock "$bin/devsim" "${devsim_args[@]}" 2>"$dir/devsim.log" &
    pids+=($!)
    wait_for "$dir/devsim.log" "devsim: ready"

    echo "$scenario" >"$dir/modemsim-scenario.json"
    local modemsim_args=(--qmi "unix:$dir/qmi.sock" --diag "unix:$dir/diag.sock"
        --scenario "$dir/modemsim-scenario.json")
    [ -n "$capture" ] && modemsim_args+=(--capture "$capture")
    echo "demo: $name: modemsim ${modemsim_args[*]}"
    "$bin/modemsim" "${modemsim_args[@]}" 2>"$dir/modemsim.log" &
    pids+=($!)
    for _ in $(seq 1 100); do [ -S "$dir/qmi.sock" ] && break; sleep 0.05; done

    # Tethering runs the platform's shell tools: logging stand-ins, first on
    # the daemon's PATH, write what they are asked to a log and change nothing
    # on this machine; route shows a routing table with an IPv6 prefix.
    echo "demo: $name: radio_tavora (log: $dir/radio_tavora.log; its shell tools log to $dir/tools.log)"
    PPS_SOCKET=$sock PATH="$root/tools/shellstandins:$PATH" SHELL_STANDINS_LOG="$dir/tools.log" \
        SHELL_STANDINS_ROUTES="$root/tools/shellstandins/routes.example" \
        QMI_DEVICE="unix:$dir/qmi.sock" DIAG_DEVICE="unix:$dir/diag.sock" SLOGF_STDERR=1 \
        "$bin/radio_tavora" 2>"$dir/radio_tavora.log" &
    pids+=($!)
    wait_for "$dir/radio_tavora.log" "tavora_pps started successfully."
}

# The first device's modem refuses EVDO throttling (message 0x18), so one
# refused setting is written back to the screen. The second is another car
# on a weaker, livelier LTE cell, handing over more often.
start_device car-1 '{"qmi": {"refuse": {"0x18": 71}}}'
start_device car-2 '{"lte": {"handover_period_ms": 8000, "drift_period_ms": 9000,
    "drift": {"rsrp": 160, "rsrq": 64}}}'
# The terminal screen's tour below is of the first device.
export PPS_SOCKET=$run/car-1/ppsd.sock
dev=$run/car-1

# MQTT: a mosquitto of the demo's own on the loopback, and each device
# publishing its reports to it, so one page shows both.
serve_args=(--record "$run/recordings")
if command -v mosquitto >/dev/null || [ -x /usr/sbin/mosquitto ]; then
    mqtt_port=$((20000 + RANDOM % 20000))
    printf 'listener %s 127.0.0.1\nallow_anonymous true\npersistence false\nlog_dest stderr\n' \
        "$mqtt_port" >"$run/mosquitto.conf"
    PATH="$PATH:/usr/sbin" mosquitto -c "$run/mosquitto.conf" 2>"$run/mosquitto.log" &
    pids+=($!)
    wait_for "$run/mosquitto.log" " running"
    echo "demo: mosquitto on 127.0.0.1:$mqtt_port"
    for name in car-1 car-2; do
        PPS_SOCKET=$run/$name/ppsd.sock "$bin/fieldtest" publish --mqtt "127.0.0.1:$mqtt_port" \
            --device "$name" --interval "$interval" --accept-settings \
            >"$run/$name/publish.log" 2>&1 &
        pids+=($!)
        wait_for "$run/$name/publish.log" "connected to MQTT broker"
        echo "demo: $name publishes its reports on radio_tavora/$name/ (log: $run/$name/publish.log)"
    done
    serve_args+=(--mqtt "127.0.0.1:$mqtt_port")
    # car-2's log mask on from the start, so that its LTE values show beside
    # car-1's once the tour below has turned car-1's on.
    PPS_SOCKET=$run/car-2/ppsd.sock "$bin/fieldtest" set diaglogmask=1 >/dev/null || true
else
    echo "demo: mosquitto is not installed: the page shows car-1 only"
fi

# gpsd, fed the project's NMEA track by gpsfake (a loop, replayed until the
# demo stops), gives each sample its position.
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
wait_for "$dev/radio_tavora.log" "LTE Log Config"
echo "-- what modemsim received:"
grep -E 'rx' "$dev/modemsim.log" | tail -n 5 || true

echo
echo "== the screen chooses LTE only: the daemon asks the radio control service =="
"$bin/fieldtest" set enabled_rats=LTE_ONLY
wait_for "$dev/devsim.log" "wrote /pps/services/radioctrl/modem0/status_persistent: .*:16}"
echo "-- what devsim received and reported:"
grep -E 'devsim: (rx|wrote /pps/services/radioctrl)' "$dev/devsim.log" | tail -n 2 || true
"$bin/ppsctl" read /pps/services/radioctrl/modem0/status_persistent

echo
echo "== the screen chooses CDMA only, which this WCDMA and LTE device cannot take =="
"$bin/fieldtest" set enabled_rats=CDMA_ONLY
echo "-- the menu shows LTE_ONLY again, and radio control is sent it once more:"
grep -E 'devsim: rx /pps/services/radioctrl' "$dev/devsim.log" | tail -n 1 || true

echo
echo "== the screen turns USB tethering on, then off =="
"$bin/fieldtest" set tether_enable=1 >/dev/null
wait_for "$dev/tools.log" "route add"
"$bin/fieldtest" set tether_enable=0 >/dev/null
wait_for "$dev/tools.log" "ip6.forwarding=0"
echo "-- the command lines the daemon ran (the tools are stand-ins):"
cat "$dev/tools.log"

echo
echo "== the screen sets IMS test mode, 1x and EVDO throttling; the modem refuses EVDO =="
"$bin/fieldtest" set ims_enable=1 onex_enable=1 evdo_enable=1
echo "-- what modemsim received (0x1a IMS, 0x16 1x set, 0x15 1x read-back, 0x18 EVDO):"
grep -E 'msg=0x(1a|16|15|18)' "$dev/modemsim.log" | tail -n 4 || true

echo
echo "== the screen sets the internet APN; the connection service takes it =="
"$bin/fieldtest" set apn_name=demo.internet >/dev/null
echo "-- what the connection service received, and the internet PDN now:"
grep -E 'devsim: rx /pps/services/cds/vesta/control' "$dev/devsim.log" | tail -n 2 || true
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
    grep -E 'diag capture' "$dev/modemsim.log" | tail -n 3 || true
fi

echo
echo "== what the DIAG library delivered, translated and dropped (per code and version) =="
"$bin/fieldtest" dmstats || true
