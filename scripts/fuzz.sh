#!/usr/bin/env bash
# Builds the libFuzzer targets with clang into build-fuzz/ and runs each for a
# bounded time; fails when one of them finds a crash (the input is kept in
# build-fuzz/crashes/). Seeds come from the real DIAG captures beside the
# repository (../shared/captures) when they are there; they are read in
# place and never copied into the repository.
#   scripts/fuzz.sh                 every target, FUZZ_SECONDS (default 30) each
#   FUZZ_SECONDS=300 scripts/fuzz.sh hdlc_fuzz   one target, longer
#   FUZZ_JOBS=1 scripts/fuzz.sh     build with one job (default: every core)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=$root/build-fuzz
captures=${RT_CAPTURES_DIR:-$root/../shared/captures}
seconds=${FUZZ_SECONDS:-30}

packages=(clang libclang-rt-14-dev cmake ninja-build pkg-config nlohmann-json3-dev libgtest-dev libgmock-dev
    libcpp-httplib-dev python3)
"$root/scripts/install_packages.sh" fuzz "${packages[@]}"

if [ ! -f "$build_dir/build.ninja" ]; then
    CC=clang CXX=clang++ cmake -S "$root" -B "$build_dir" -G Ninja \
        -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRT_FUZZ=ON -DRT_BENCHMARKS=OFF
fi
cmake --build "$build_dir" -j "${FUZZ_JOBS:-$(nproc 2>/dev/null || echo 2)}" --target fuzz_targets

# Seeds: slices of the DIAG captures for the targets that read DIAG bytes,
# a few well-formed messages for the others.
seeds=$build_dir/seeds
rm -rf "$seeds"
mkdir -p "$seeds"
seed_captures() {  # target, leading byte (or "") to put before each slice
    local target=$1 lead=$2 dir=$seeds/$1 n=0
    mkdir -p "$dir"
    if [ ! -d "$captures" ]; then return; fi
    for capture in "$captures"/*.qmdl "$captures"/*.mi2log; do
        [ -f "$capture" ] || continue
        for skip in 0 7 31 97; do
            { if [ -n "$lead" ]; then printf "$lead"; fi
              dd if="$capture" bs=1024 skip="$skip" count=4 status=none; } >"$dir/$n"
            [ -s "$dir/$n" ] || rm -f "$dir/$n"
            n=$((n + 1))
        done
    done
}
if [ -d "$captures" ]; then
    echo "fuzz: seeding from $captures"
else
    echo "fuzz: no captures at $captures; the DIAG targets start without seeds"
fi
seed_captures hdlc_fuzz '\x3f'
seed_captures diag_stream_fuzz ''
seed_captures diag_packet_fuzz ''
# The translator gets "code u16, log record": the captures' log records of
# the codes it has versions for, cut out with a small deframer.
seed_translator() {
    local dir=$seeds/packet_translator_fuzz
    mkdir -p "$dir"
    [ -d "$captures" ] || return 0
    python3 - "$captures" "$dir" <<'PY' || true
import glob, os, struct, sys
src, out = sys.argv[1], sys.argv[2]
codes = {0xB0C2, 0xB0EE, 0xB179, 0xB17F, 0xB081, 0xB091, 0xB087, 0xB097}
seen = {}
for path in sorted(glob.glob(src + "/*.mi2log") + glob.glob(src + "/*.qmdl")):
    frame, esc = bytearray(), False
    for b in open(path, "rb").read():
        if b == 0x7E:
            body = bytes(frame[:-2]); frame = bytearray()
            if body[:1] == b"\x98": body = body[8:]
            if body[:1] != b"\x10" or len(body) < 17: continue
            rec = body[4:]; code = struct.unpack_from("<H", rec, 2)[0]
            key = (code, rec[12], rec[17] if len(rec) > 17 else 0)
            if code in codes and seen.get(key, 0) < 3:
                seen[key] = seen.get(key, 0) + 1
                open(os.path.join(out, "%04x_%d_%d_%d" % (key + (seen[key],))), "wb").write(struct.pack("<H", code) + rec)
            continue
        if b == 0x7D: esc = True; continue
        if esc: b ^= 0x20; esc = False
        frame.append(b)
PY
}
seed_translator
# The WCDMA reports read log records and a measurement response: capture
# bytes give them real records to start from.
seed_captures wcdma_reports_fuzz ''
# The LTE reports read whole records: the captures' real 0xB0C2, 0xB0EE,
# 0xB179, 0xB17F and RLC records, taken out of their frames, behind a
# type-4 measurement response.
mkdir -p "$seeds/lte_reports_fuzz"
if [ -d "$captures" ]; then
    python3 "$root/scripts/lte_fuzz_seeds.py" "$seeds/lte_reports_fuzz" \
        "$captures"/*.qmdl "$captures"/*.mi2log
fi
# umtsopinfo and bearer read whole records too: the captures' real MM, GMM
# and PDP QoS records behind a type-3 measurement response.
mkdir -p "$seeds/umts_reports_fuzz"
if [ -d "$captures" ]; then
    python3 "$root/scripts/umts_fuzz_seeds.py" "$seeds/umts_reports_fuzz" \
        "$captures"/*.qmdl "$captures"/*.mi2log
fi
# One log packet body (10 00 len len, then a record of code 0x4125) and a
# log-config answer, for the packet parser.
printf '\x10\x00\x10\x00\x10\x00\x10\x00\x25\x41\x00\x00\x00\x00\x00\x00\x00\x00\x01\x02' \
    >"$seeds/diag_packet_fuzz/log_packet"
printf '\x73\x00\x00\x00\x03\x00\x00\x00\x00\x00\x00\x00\x01\x00\x00\x00\x00\x00\x00\x00' \
    >"$seeds/diag_packet_fuzz/log_config"
mkdir -p "$seeds/qmux_codec_fuzz" "$seeds/misc_info_fuzz" "$seeds/pps_server_fuzz" "$seeds/pps_decoder_fuzz" \
    "$seeds/world_fuzz"
# A QMUX response of service 0xE3 with a result TLV.
printf '\x01\x13\x00\x80\xe3\x01\x02\x01\x00\x01\x00\x07\x00\x02\x04\x00\x00\x00\x00\x00' \
    >"$seeds/qmux_codec_fuzz/response"
printf '\x02\x04\x00\x00\x00\x00\x00\x10\x08\x00ABCDEF01\x11\x01\x00\x05' \
    >"$seeds/misc_info_fuzz/response"
printf '+@control.5.n0.p42.u0.g0\n' >"$seeds/pps_server_fuzz/connect"
printf '@control.5\nmsg::radiostats\nid::17\ndat:json:{"a":1}\n' >"$seeds/pps_server_fuzz/request"
printf '@config\nmsg::x\nn:n:5\nb:b:true\nj:json:{"a":[1,2,{"b":null}]}\n' \
    >"$seeds/pps_decoder_fuzz/object"
# modemsim's worlds: scenarios as a tester writes them.
printf '{"lte":{"cells":[{"pci":501,"cell_id":4000000001,"rsrp":1000,"rsrq":160}],"rssi":-10}}' \
    >"$seeds/world_fuzz/cells"
printf '{"lte":{"rlc":{"released":2,"bearers":[{"cfg_idx":9,"kind":"srb","mode":"UM","dl_rate":10}]}}}' \
    >"$seeds/world_fuzz/rlc"
printf '{"lte":{"geran":[{"cells":[{"bsic":1,"rssi":-500,"present":0}]}],"wcdma":{"rscp":[-80,-81]}}}' \
    >"$seeds/world_fuzz/neighbours"
printf '{"wcdma":{"active_set_size":3,"cells":[{"psc":1,"cell_id":7,"ecio":10,"rscp":950}],"inter_freq":[{"uarfcn":10563,"cells":[{"psc":17}]}],"gsm":[{"arfcn":128,"bsic":7,"rssi":-900}]}}' \
    >"$seeds/world_fuzz/wcdma_cells"
printf '{"wcdma":{"hspa":{"cqi_type":"DCHSPA","cqi":30},"dch":{"transport_channels":[{"id":1,"bler":5}]},"bearers":{"rab_period_ms":10,"rabs":[{"rab_id":5,"qos":{"traffic_class":3}}]}}}' \
    >"$seeds/world_fuzz/wcdma_connection"

# The PDN and APN readers: devsim's connection status, interface object and
# OMA-DM answer, each after the byte that picks its decoder.
mkdir -p "$seeds/pdn_apn_readers_fuzz"
printf '\x00@status\ncarrier_ims:json:{"apn":"vzwims","connected":true,"net_if":"rmnet0","net_if_IPv6":"rmnet0"}\ninternet:json:{"apn":"vzwinternet","connected":true,"net_if":"rmnet2","net_if_IPv6":"rmnet2"}\n' \
    >"$seeds/pdn_apn_readers_fuzz/status"
printf '\x01@rmnet2\nconnected:b:true\nip_addresses:json:["100.66.12.9/29","fe80::5c:2/64"]\nnameservers:json:["198.224.166.135","198.224.167.135"]\n' \
    >"$seeds/pdn_apn_readers_fuzz/interface"
printf '\x02@control\nres::get_leaf_node\nid::3323\ndat:json:{"value":"vzwinternet"}\n' \
    >"$seeds/pdn_apn_readers_fuzz/leaf_answer"
printf '\x02@control\nres::get_leaf_node\nid::3323\nerr:n:2\n' >"$seeds/pdn_apn_readers_fuzz/leaf_error"

# The web screen's report layout: status objects as the daemon writes them.
mkdir -p "$seeds/report_layout_fuzz"
printf '@status_utra\nscell_rscp:n:-90.7\naset_sc1:n:100\naset_rscp1:n:-93.10000000000001\naset_sc2::No data available!\nsqual1:n:16\nsrxlev1:n:19\ndch_bler:json:[{"bler0":0,"tr_channel_id0":5},{"bler1":9,"tr_channel_id1":6}]\n' \
    >"$seeds/report_layout_fuzz/status_utra"
printf '@status_eutra\nlte_apn1_Id::1\nlte_apn1_Name::vzwims\napn1_ipv4_addr::10.168.4.21/30\napn1_dns_ip_addr::10.168.7.1,\nrlc_dl_drb_status:json:[{"rb_cfg_idx1":3,"mode1":"AM","num_rst1":0}]\n' \
    >"$seeds/report_layout_fuzz/status_eutra"
# The settings' answers: the tethering prefix query's output (a routing
# table's third IPv6 route cut to its prefix), and the connection service's
# answers to set_apn_setting and get_apn_setting, each after the byte that
# picks its decoder.
mkdir -p "$seeds/settings_answers_fuzz"
printf '\x002001:db8:1:2:\n' >"$seeds/settings_answers_fuzz/prefix"
printf '\x01@control\nres::set_apn_setting\nid::3323\nerr:n:5\n' \
    >"$seeds/settings_answers_fuzz/set_refused"
printf '\x02@control\nres::get_apn_setting\nid::3323\ndat:json:{"name":"internet","APN":"vzwinternet"}\n' \
    >"$seeds/settings_answers_fuzz/get_answer"

# The web screen's other outside input: gpsd's lines as gpsd 3.22 sent them
# while gpsfake replayed the project's track, and the facts of a request
# from another origin.
mkdir -p "$seeds/outside_input_fuzz"
printf '\x00{"class":"VERSION","release":"3.22","rev":"3.22","proto_major":3,"proto_minor":14}\n{"class":"WATCH","enable":true,"json":true,"nmea":false,"raw":0,"scaled":false,"timing":false,"split24":false,"pps":false}\n{"class":"TPV","device":"/dev/pts/1","mode":3,"lat":52.518100000,"lon":13.380700000,"altHAE":73.0000,"altMSL":34.0000,"alt":34.0000,"magvar":4.1,"geoidSep":39.000,"eph":17.100}\n{"class":"TPV","device":"/dev/pts/1","mode":3,"time":"2024-06-10T12:00:10.000Z","ept":0.005,"lat":52.518073333,"lon":13.381221667,"altHAE":73.0000,"altMSL":34.0000,"alt":34.0000,"track":100.0000,"magtrack":104.0519,"magvar":4.1,"speed":9.517,"geoidSep":39.000,"eph":17.100}\n{"class":"TPV","device":"/dev/pts/1","mode":3,"time":"2024-06-10T12:00:11.000Z","ept":0.005,"lat":52.517991667,"lon":13.381726667,"altHAE":73.0000,"altMSL":34.0000,"alt":34.0000,"track":110.0000,"magtrack":114.0521,"magvar":4.1,"speed":9.517,"climb":0.000,"geoidSep":39.000,"eph":17.100}\n' >"$seeds/outside_input_fuzz/gpsd"
printf '\x01POST\n127.0.0.1:8080\nhttp://evil.example\ntext/plain\n127.0.0.1\n' \
    >"$seeds/outside_input_fuzz/foreign_post"

# What fieldtest serve --mqtt hears: a device's status, and an lteopinfo
# sample the demo's publisher sent (the selector byte picks the topic).
mkdir -p "$seeds/mqtt_fleet_fuzz"
printf '\x00online' >"$seeds/mqtt_fleet_fuzz/status"
{ printf '\x02'; cat "$root/bench/mqtt_sample_lteopinfo.json"; } >"$seeds/mqtt_fleet_fuzz/sample"

corpus=$build_dir/corpus
crashes=$build_dir/crashes
mkdir -p "$corpus" "$crashes"
only=("$@")
status=0
# The targets are built with -fno-sanitize-recover=all (CMakeLists.txt): the
# first UB stops the run and fails it like a crash. Never fuzz a build that
# lacks the flag, where UB would only be a line in the log.
if ! grep -q -- '-fno-sanitize-recover=all' "$build_dir/build.ninja"; then
    echo "fuzz: $build_dir lacks -fno-sanitize-recover=all" >&2
    exit 1
fi
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
for exe in "$build_dir"/fuzz/*; do
    [ -x "$exe" ] || continue
    name=$(basename "$exe")
    if ((${#only[@]})) && [[ ! " ${only[*]} " == *" $name "* ]]; then continue; fi
    mkdir -p "$corpus/$name" "$seeds/$name"
    echo "fuzz: $name for ${seconds}s"
    if ! "$exe" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$crashes/$name-" -print_final_stats=1 \
        "$corpus/$name" "$seeds/$name" >"$build_dir/$name.log" 2>&1; then
        echo "fuzz: $name FAILED; see $build_dir/$name.log and $crashes/" >&2
        tail -n 40 "$build_dir/$name.log" >&2
        status=1
    else
        grep -E 'stat::number_of_executed_units' "$build_dir/$name.log" || true
    fi
done
exit $status
