#!/usr/bin/env bash
# Fails when an include points the wrong way:
#  - a library folder (platform/, service/, qmi/, diaglog/, reports/,
#    config/) includes testsupport/, tools/, bench/ or daemon/ (tests
#    beside the code, *_test.cpp, may use the test helpers);
#  - platform/ includes the daemon's folders (the stand-ins sit below it);
#  - a tool (tools/, tests and fuzz targets included) includes the daemon's
#    folders: the simulators stand for the outside world and must not share
#    a mistake with the code they test.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

daemon='(service|qmi|diaglog|reports|config|daemon)/'
found=0
check() {  # check DESCRIPTION PATTERN FILE...
    local what=$1 pattern=$2
    shift 2
    (($#)) || return 0
    local hits
    if hits=$(grep -nE "^[[:space:]]*#[[:space:]]*include[[:space:]]+\"$pattern" "$@"); then
        echo "check_layering: $what:"
        echo "$hits" | sed 's/^/  /'
        found=1
    fi
}

sources() {  # the C++ files of the folders given, tests left out when asked
    local skip_tests=$1
    shift
    git ls-files -- "$@" | grep -E '\.(cpp|h)$' |
        { if [ "$skip_tests" = yes ]; then grep -vE '_test\.(cpp|h)$'; else cat; fi; } || true
}

mapfile -t libraries < <(sources yes platform service qmi diaglog reports config)
check "a library includes a test helper, a tool, a benchmark or the program" \
    '(testsupport|tools|bench|daemon)/' "${libraries[@]}"
mapfile -t platform < <(sources no platform)
check "the platform stand-ins include the daemon" "$daemon" "${platform[@]}"
mapfile -t tools < <(sources no tools)
check "a tool includes the daemon" "$daemon" "${tools[@]}"

if ((found)); then exit 1; fi
echo "check_layering: every include points down"
