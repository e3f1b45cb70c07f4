#!/usr/bin/env bash
# The export check must reject a DLL whose table is not the agent's: run it on another
# DLL and expect it to fail for missing entry points and for names it does not allow.
# Usage: check-exports-rejects.sh OTHER.dll EXPECTED-LIST
set -uo pipefail

here=$(dirname "$0")
output=$(bash "$here/check-exports.sh" "$1" "$2")
status=$?
if [ "$status" -eq 1 ] && grep -qxF "  missing export: SnmpExtensionInit" <<<"$output" &&
    grep -q "^  unexpected export: " <<<"$output"; then
    echo "ok: the export check rejects $(basename "$1") (missing entry points, names of other classes)"
    exit 0
fi
echo "FAIL: the export check did not reject $(basename "$1") as expected (exit status $status)"
printf '%s\n' "$output" | head -20
exit 1
