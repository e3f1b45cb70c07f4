#!/usr/bin/env bash
# Builds the release tree and runs the agent in the foreground: hmagentd, the
# extension-agent host on net-snmp, serving the agent library on the built-in demo
# server at udp:127.0.0.1:1161 (community "public"), traps to 127.0.0.1:1162.
# Ctrl-C stops it.
# Usage: scripts/run.sh
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/install-deps.sh build

echo "=== release: configure and build"
cmake --preset release >/dev/null
cmake --build --preset release --target hmagentd hmSubagent kelvarn-sim

out="$root/build/release"
config="$root/config/hmsubagent.conf"
log="$out/hmsubagent.log"
registry="$out/registry.reg"
daemon_config="$out/hmagentd.conf"
kelvarn_config="$out/kelvarn.conf"
trapd_config="$out/snmptrapd.conf"

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

cat >"$daemon_config" <<CONF
# Written by scripts/run.sh; see config/hmagentd.conf for every directive.
agentLibrary  $out/lib/libhmSubagent.so
agentRegistry $registry
agentRole master
agentaddress udp:127.0.0.1:1161
rocommunity public 127.0.0.1
trapsink 127.0.0.1:1162 public
CONF

# The built-in demo server, with a journal so that kelvarn-sim can change it live.
cat >"$kelvarn_config" <<CONF
source=demo
journal=$out/demo.journal
CONF
rm -f "$out/demo.journal"

printf 'authCommunity log public\n' >"$trapd_config"

export HMSUBAGENT_REGISTRY="$registry"
export KELVARN_CONFIG="$kelvarn_config"
export SNMP_PERSISTENT_DIR="$out/snmp-state"
mkdir -p "$SNMP_PERSISTENT_DIR"

cat <<HINT
=== hmagentd on udp:127.0.0.1:1161 (Ctrl-C stops it); the agent's trace goes to $log
Walk it from another terminal (the snmp package: sudo apt-get install snmp), with the
names of the MIB module (mibs/; leave -M and -m out for numeric OIDs):
    snmpwalk -v2c -c public -M +$root/mibs:$root/mibs/ietf -m HM-SUBAGENT-MIB 127.0.0.1:1161 1.3.6.1.4.1.64999
Every threshold sensor in ENTITY-SENSOR-MIB, and the physical tree in ENTITY-MIB:
    snmpwalk -v2c -c public 127.0.0.1:1161 1.3.6.1.2.1.99.1.1
    snmpwalk -v2c -c public 127.0.0.1:1161 1.3.6.1.2.1.47.1.1.1
Receive its traps, named (the snmptrapd package):
    snmptrapd -f -Lo -C -c $trapd_config -M +$root/mibs:$root/mibs/ietf -m HM-SUBAGENT-MIB udp:127.0.0.1:1162
Make one happen: log an upper-critical temperature event in the demo server's SEL
    KELVARN_CONFIG=$kelvarn_config $out/bin/kelvarn-sim sel-add "CPU2 Temp" 9
HINT
exec "$out/bin/hmagentd" -c "$daemon_config"
