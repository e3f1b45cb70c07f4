#!/usr/bin/env bash
# Compares the export table of a Windows DLL with a list of expected exports.
# Usage: check-exports.sh DLL EXPECTED-LIST
# Prints one line per problem and exits 1 when there is any; 0 when the table matches.
set -euo pipefail

dll=$1
expected=$2
triplet=x86_64-w64-mingw32
objdump=$(command -v "$triplet-objdump" || true)
demangle=$(command -v "$triplet-c++filt" || command -v c++filt || true)
if [ -z "$objdump" ] || [ -z "$demangle" ]; then
    echo "FAIL: $triplet-objdump and c++filt are needed (binutils-mingw-w64-x86-64)"
    exit 1
fi
[ -f "$dll" ] || { echo "FAIL: no such file: $dll"; exit 1; }

# The names of the "[Ordinal/Name Pointer] Table" section of objdump -p, one a line.
exports=$("$objdump" -p "$dll" | awk '
    /^\[Ordinal\/Name Pointer\] Table/ { inTable = 1; next }
    inTable && NF == 0 { inTable = 0; done = 1 }
    inTable && !done { print $NF }')

mapfile -t names < <(awk '$1 == "name" { print $2 }' "$expected")
mapfile -t classes < <(awk '$1 == "class" { print $2 }' "$expected")
mapfile -t members < <(awk '$1 == "member" { sub(/^member /, ""); print }' "$expected")

problems=0
problem() {
    echo "  $*"
    problems=$((problems + 1))
}

declare -A exported=()
declare -A demangledSet=()
while IFS= read -r symbol; do
    [ -n "$symbol" ] || continue
    exported[$symbol]=1
done <<<"$exports"

declare -A wanted=()
for n in "${names[@]}"; do
    wanted[$n]=1
    [ -n "${exported[$n]:-}" ] || problem "missing export: $n"
done

classPattern=$(IFS='|'; echo "${classes[*]}")
for symbol in "${!exported[@]}"; do
    [ -n "${wanted[$symbol]:-}" ] && continue
    if [[ $symbol != _Z* ]]; then
        problem "unexpected export: $symbol"
        continue
    fi
    readable=$(printf '%s\n' "$symbol" | "$demangle")
    demangledSet[$readable]=1
    if ! [[ $readable =~ ^((vtable|typeinfo|typeinfo\ name)\ for\ )?($classPattern)(::|$) ]]; then
        problem "unexpected export: $symbol ($readable)"
    fi
done

for m in "${members[@]}"; do
    [ -n "${demangledSet[$m]:-}" ] || problem "missing export: $m"
done

count=${#exported[@]}
if [ "$problems" -ne 0 ]; then
    echo "FAIL: export table of $(basename "$dll"): $problems problem(s) among $count exports"
    exit 1
fi
echo "ok: export table of $(basename "$dll"): ${#names[@]} C names and $((count - ${#names[@]})) members of the listed classes"
