#!/usr/bin/env bash
# hmSubagent.dll served by a second host: net-snmp's snmpd for Windows with its winExtDLL
# module (scripts/build-netsnmp-windows.sh), run under Wine, which loads the DLL through
# the registry as the Windows SNMP service does. From Linux, net-snmp's snmpwalk and
# snmpbulkwalk read the agent's MIB through it, and the answers are compared variable for
# variable (OID, type, value) with those of the Linux daemon hmagentd serving
# libhmSubagent.so on the same demo server with the same configuration file.
#
# Values that change with time are left out of the comparison: none so far (see
# `changing` below).
#
# Then the trap path: an event logged in the demo server's SEL with the live-change tool
# (both hosts read one journal) reaches a snmptrapd of each host's own as the same SNMPv1
# traps (enterprise, generic and specific number, bindings; the time stamp aside). Under
# Wine the agent's SnmpMgrStrToOid comes from a test-only mgmtapi.dll (Wine's is a stub).
#
# Usage: winextdll.sh snmpd.exe hmSubagent.dll mgmtapi.dll LINUX-TREE
#   LINUX-TREE: a Linux build tree with bin/hmagentd, bin/kelvarn-sim and lib/libhmSubagent.so
# Exits 77 (skipped) when snmpd.exe, the Linux tree or net-snmp's tools are missing.
set -euo pipefail

snmpd=$(readlink -f "$1")
dll=$(readlink -f "$2")
mgmtapi=$(readlink -f "$3")
linux=$(readlink -f "$4")
for needed in "$snmpd" "$linux/bin/hmagentd" "$linux/bin/kelvarn-sim" "$linux/lib/libhmSubagent.so"; do
    if [ ! -e "$needed" ]; then
        echo "skipped: $needed is missing (scripts/test-windows.sh builds it)"
        exit 77
    fi
done
for tool in snmpwalk snmpbulkwalk snmpget /usr/sbin/snmptrapd; do
    command -v $tool >/dev/null || { echo "skipped: $tool is missing (Debian package snmp)"; exit 77; }
done

# shellcheck source=wine-prefix.sh
source "$(dirname "$0")/wine-prefix.sh"
servers=()
stopAll() {
    local pid
    for pid in "${servers[@]}"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    cleanup
}
trap stopAll EXIT

freePort() {
    python3 -c 'import socket; s=socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
community=winext-check
export MIBS=

# The agent's configuration file, read by both hosts.
cat >"$work/hmSubagent.conf" <<CONF
platformdescription = "Second host test rack"
platformid = 7310
trapsenabled = 1
setsenabled = 0
debugenabled = 1
manufacturer = "Example Systems"
productname = "ES-R2200 Server"
productversion = "2.4"
productbuildnumber = "1187"
productdescription = "Compared under winExtDLL and hmagentd"
CONF

# The built-in demo server, with one live-change journal for both hosts.
printf 'source=demo\njournal=%s\n' "$work/demo.journal" >"$work/kelvarn.conf"
printf 'source=demo\njournal=%s\n' "$(windowsPath "$work/demo.journal")" >"$work/kelvarn-windows.conf"

# A trap receiver for each host: one line per SNMPv1 trap, "V1 enterprise generic
# specific|bindings", each binding "|OID = TYPE: value".
printf 'authCommunity log public\nformat1 V1 %%N %%w %%q|%%V|%%v\\n\n' >"$work/snmptrapd.conf"
receiver() { # receiver NAME PORT
    /usr/sbin/snmptrapd -f -Lo -On -C -c "$work/snmptrapd.conf" "udp:127.0.0.1:$2" >"$work/$1-traps.txt" 2>&1 &
    servers+=($!)
}
windowsTraps=$(freePort)
linuxTraps=$(freePort)
receiver windows "$windowsTraps"
receiver linux "$linuxTraps"

# --- snmpd.exe under Wine, the DLL registered as the Windows SNMP service reads it.
reg() { "$wine" reg add "$@" /f >/dev/null 2>&1; }
params='HKLM\SOFTWARE\Arveni\FleetwatchSNMP\Parameters'
current='HKLM\SOFTWARE\Arveni\FleetwatchSNMP\CurrentVersion'
reg "$params" /v ConfigFile /t REG_SZ /d "$(windowsPath "$work/hmSubagent.conf")"
reg "$params" /v LogFile /t REG_SZ /d "$(windowsPath "$work/windows-agent.log")"
reg "$current" /v Pathname /t REG_SZ /d "$(windowsPath "$dll")"
reg 'HKLM\SYSTEM\CurrentControlSet\Services\SNMP\Parameters\ExtensionAgents' /v hmSubagent /t REG_SZ \
    /d 'SOFTWARE\Arveni\FleetwatchSNMP\CurrentVersion'

windowsPort=$(freePort)
mkdir -p "$work/windows-state"
cat >"$work/snmpd.conf" <<CONF
agentaddress udp:127.0.0.1:$windowsPort
rocommunity $community 127.0.0.1
trapsink 127.0.0.1:$windowsTraps public
CONF
cp "$mgmtapi" "$WINEPREFIX/drive_c/windows/system32/mgmtapi.dll"
# kelvarn.dll and pickmere.dll are beside hmSubagent.dll; Windows looks for a DLL's
# imports on PATH, not in the DLL's own folder.
WINEPATH=$(windowsPath "$(dirname "$dll")") SNMP_PERSISTENT_DIR=$(windowsPath "$work/windows-state") \
    KELVARN_CONFIG=$(windowsPath "$work/kelvarn-windows.conf") WINEDLLOVERRIDES="$WINEDLLOVERRIDES;mgmtapi=n" \
    "$wine" "$snmpd" -f -Lo -C -c "$(windowsPath "$work/snmpd.conf")" >"$work/snmpd.out" 2>&1 &

# --- hmagentd on Linux, the same configuration file through its registry file.
linuxPort=$(freePort)
mkdir -p "$work/linux-state"
cat >"$work/registry.reg" <<REG
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]
"ConfigFile"="$work/hmSubagent.conf"
"LogFile"="$work/linux-agent.log"
REG
cat >"$work/hmagentd.conf" <<CONF
agentLibrary $linux/lib/libhmSubagent.so
agentRegistry $work/registry.reg
agentaddress udp:127.0.0.1:$linuxPort
entityTables no
rocommunity $community 127.0.0.1
trapsink 127.0.0.1:$linuxTraps public
CONF
SNMP_PERSISTENT_DIR=$work/linux-state KELVARN_CONFIG=$work/kelvarn.conf \
    "$linux/bin/hmagentd" -c "$work/hmagentd.conf" >"$work/hmagentd.out" 2>&1 &
servers+=($!)

# Each host is ready when it answers the platform ID from the configuration file.
answers() { # answers PORT
    snmpget -v2c -c $community -On -r 0 -t 2 "127.0.0.1:$1" 1.3.6.1.4.1.64999.2.10.3.5.100.3.0 2>/dev/null |
        grep -qF 'INTEGER: 7310'
}
waitFor() { # waitFor PORT SECONDS
    local deadline=$((SECONDS + $2))
    while [ $SECONDS -lt $deadline ]; do
        answers "$1" && return 0
        sleep 1
    done
    return 1
}
check "snmpd.exe under Wine answers through winExtDLL and hmSubagent.dll on udp:127.0.0.1:$windowsPort" \
    waitFor "$windowsPort" 180
check "hmagentd answers through libhmSubagent.so on udp:127.0.0.1:$linuxPort" waitFor "$linuxPort" 60

# Values that change with time, as OID prefixes (none in the demo server's view so far).
changing=()
walkOf() { # walkOf TOOL PORT OUTPUT
    "$1" -v2c -c $community -On -r 1 -t 10 "127.0.0.1:$2" 1.3.6.1.4.1.64999.2.10.3.5 >"$3.raw" 2>&1 || true
    local prefix
    cp "$3.raw" "$3"
    for prefix in "${changing[@]}"; do
        grep -vF "$prefix." "$3" >"$3.tmp" || true
        mv "$3.tmp" "$3"
    done
}
compared() { # compared TOOL: the two hosts' answers are the same, line for line
    local tool=$1
    walkOf "$tool" "$windowsPort" "$work/$tool-windows.txt"
    walkOf "$tool" "$linuxPort" "$work/$tool-linux.txt"
    local lines
    lines=$(grep -c ' = ' "$work/$tool-linux.txt" || true)
    echo "  $tool: $lines variables from hmagentd, $(grep -c ' = ' "$work/$tool-windows.txt" || true) through winExtDLL"
    [ "$lines" -gt 0 ] && diff "$work/$tool-linux.txt" "$work/$tool-windows.txt" >"$work/$tool.diff"
}
check "snmpwalk -v2c -On of 1.3.6.1.4.1.64999.2.10.3.5: the same variables, types and values from both hosts" \
    compared snmpwalk
check "snmpbulkwalk -v2c -On of 1.3.6.1.4.1.64999.2.10.3.5: the same variables, types and values from both hosts" \
    compared snmpbulkwalk
check "snmpwalk and snmpbulkwalk agree" cmp -s "$work/snmpwalk-windows.txt" "$work/snmpbulkwalk-windows.txt"

# --- The trap path: a temperature probe above its upper critical threshold, which also
# changes the server's overall health: two enterprise-specific traps from each host.
enterpriseTraps() { grep -E '^V1 [.0-9]+ 6 ' "$work/$1-traps.txt" || true; }
bothTrapped() { # bothTrapped SECONDS
    local deadline=$((SECONDS + $1))
    while [ $SECONDS -lt $deadline ]; do
        [ "$(enterpriseTraps windows | wc -l)" -ge 2 ] && [ "$(enterpriseTraps linux | wc -l)" -ge 2 ] && return 0
        sleep 1
    done
    return 1
}
# An entry logged before an agent's first look at the SEL is taken as already there: wait
# for both agents to have read it once (their traces say so).
firstPollsDone() { # firstPollsDone SECONDS
    local deadline=$((SECONDS + $1)) first="First time reading the SEL"
    while [ $SECONDS -lt $deadline ]; do
        grep -qF "$first" "$work/linux-agent.log" 2>/dev/null && grep -qF "$first" "$work/windows-agent.log" 2>/dev/null &&
            return 0
        sleep 1
    done
    return 1
}
check "both agents have read the SEL once" firstPollsDone 60
KELVARN_CONFIG=$work/kelvarn.conf "$linux/bin/kelvarn-sim" sel-add "CPU2 Temp" 9 >"$work/sel-add.txt" 2>&1
check "both hosts send the SEL entry's traps" bothTrapped 90
sleep 2 # any further trap of the event arrives too
sameTraps() {
    enterpriseTraps linux >"$work/traps-linux.txt"
    enterpriseTraps windows >"$work/traps-windows.txt"
    echo "  traps: $(wc -l <"$work/traps-linux.txt") from hmagentd, $(wc -l <"$work/traps-windows.txt") through winExtDLL," \
        "$(tr '|' '\n' <"$work/traps-linux.txt" | grep -c ' = ') bindings from hmagentd"
    diff "$work/traps-linux.txt" "$work/traps-windows.txt" >"$work/traps.diff"
}
check "the traps are the same: enterprise, generic and specific number, bindings" sameTraps

if [ "$failures" -ne 0 ]; then
    for f in snmpwalk.diff snmpbulkwalk.diff sel-add.txt traps.diff windows-traps.txt linux-traps.txt; do
        [ -s "$work/$f" ] && { echo "--- $f (< hmagentd, > winExtDLL)"; head -40 "$work/$f"; }
    done
    echo "--- snmpd.exe"
    tail -40 "$work/snmpd.out"
    echo "--- hmagentd"
    tail -20 "$work/hmagentd.out"
    exit 1
fi
