#!/usr/bin/env bash
# Checks that every C++ file of the tree follows .clang-format; lists the
# files that do not and exits 1. With --fix, formats them in place instead.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
if ! command -v clang-format >/dev/null; then
    echo "check_format: clang-format is not installed (scripts/setup.sh installs it)" >&2
    exit 2
fi
mapfile -t files < <(git ls-files '*.cpp' '*.h')
if [ "${1:-}" = "--fix" ]; then
    clang-format -i "${files[@]}"
    exit 0
fi
bad=()
for f in "${files[@]}"; do
    if ! clang-format --dry-run --Werror "$f" >/dev/null 2>&1; then bad+=("$f"); fi
done
if ((${#bad[@]})); then
    echo "check_format: ${#bad[@]} file(s) differ from .clang-format (scripts/check_format.sh --fix):" >&2
    printf '  %s\n' "${bad[@]}" >&2
    exit 1
fi
echo "check_format: ${#files[@]} files follow .clang-format"
