#!/usr/bin/env bash
# Runs .clang-tidy's naming and readability checks over the agent library and its tools
# (agent/, core/, platform/, tables/, events/, compat/, tools/), using the compile
# commands of a configured build (default build/asan). Fails on any finding.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/asan}
mapfile -t files < <(git ls-files 'agent/*.cpp' 'core/*.cpp' 'platform/*.cpp' 'tables/*.cpp' 'events/*.cpp' \
    'compat/*.cpp' 'tools/*.cpp' 2>/dev/null)
[ ${#files[@]} -eq 0 ] && exit 0
out=$(mktemp)
run-clang-tidy -p "$build" -quiet -j "$(nproc)" "${files[@]}" >"$out" 2>&1 || {
    grep -E '(warning|error):' "$out" | sort -u
    rm -f "$out"
    exit 1
}
rm -f "$out"
echo "tidy: ${#files[@]} files clean"
