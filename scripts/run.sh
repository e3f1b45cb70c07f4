#!/usr/bin/env bash
# Builds the release tree and starts the agent's client facade on the sample
# configuration in config/, printing the system group and the overall health.
# Usage: scripts/run.sh
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/install-deps.sh build

echo "=== release: configure and build"
cmake --preset release >/dev/null
cmake --build --preset release --target hm-show-system

out="$root/build/release"
config="$root/config/hmsubagent.conf"
log="$out/hmsubagent.log"
registry="$out/registry.reg"

# The agent keeps each registry path in 128 bytes.
for path in "$config" "$log"; do
    if [ ${#path} -gt 127 ]; then
        echo "error: the path $path is longer than 127 characters;" \
             "move the repository to a shorter path" >&2
        exit 1
    fi
done

# .reg strings escape backslashes and double quotes.
reg_escape() { printf '%s' "$1" | sed -e 's/\\/\\\\/g' -e 's/"/\\"/g'; }

cat >"$registry" <<REG
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]
"ConfigFile"="$(reg_escape "$config")"
"LogFile"="$(reg_escape "$log")"
REG

export HMSUBAGENT_REGISTRY="$registry"
echo "=== hm-show-system (registry: $registry)"
"$out/bin/hm-show-system"
echo "=== the debug trace was appended to $log"
