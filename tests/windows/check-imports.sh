#!/usr/bin/env bash
# Checks the DLLs a Windows program or DLL imports: none of the mingw-w64 runtime DLLs
# (the runtimes are linked in statically), and each DLL named after the file.
# Usage: check-imports.sh FILE [REQUIRED-DLL...]
set -euo pipefail

file=$1
shift
objdump=$(command -v x86_64-w64-mingw32-objdump || true)
[ -n "$objdump" ] || { echo "FAIL: x86_64-w64-mingw32-objdump is needed (binutils-mingw-w64-x86-64)"; exit 1; }
[ -f "$file" ] || { echo "FAIL: no such file: $file"; exit 1; }

imports=$("$objdump" -p "$file" | awk '/DLL Name:/ { print tolower($3) }' | sort -u)
problems=0
for runtime in libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll; do
    if grep -qxF "$runtime" <<<"$imports"; then
        echo "  imports the mingw-w64 runtime $runtime"
        problems=$((problems + 1))
    fi
done
for required in "$@"; do
    if ! grep -qxiF "$required" <<<"$imports"; then
        echo "  does not import $required"
        problems=$((problems + 1))
    fi
done
if [ "$problems" -ne 0 ]; then
    echo "FAIL: imports of $(basename "$file"): $(tr '\n' ' ' <<<"$imports")"
    exit 1
fi
echo "ok: imports of $(basename "$file"): $(tr '\n' ' ' <<<"$imports")"
