#!/usr/bin/env bash
# Installs the Debian packages named on the command line that are missing
# (apt-get, through sudo when not root); does nothing when all are there.
#   scripts/install_packages.sh TAG PACKAGE...   (TAG prefixes the message)
set -euo pipefail

tag=$1
shift
missing=()
for p in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
((${#missing[@]})) || exit 0
echo "$tag: installing ${missing[*]}"
sudo=()
if [ "$(id -u)" -ne 0 ]; then sudo=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
