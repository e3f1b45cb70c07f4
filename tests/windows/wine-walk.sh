#!/usr/bin/env bash
# Drives hmSubagent.dll under Wine with the loader program, as the Windows SNMP service
# would: registry values, start-up with every region, a GETNEXT walk of the enterprise
# branch, GETs of the system group and the exported inventory counters. The system
# group's values come from the configuration file written here.
#
# Not covered here: the trap path's split of the event OID (SnmpExtensionTrap) needs
# mgmtapi's SnmpMgrStrToOid, which Wine only stubs; winextdll.sh covers it with a
# test-only mgmtapi.dll, the Linux agent tests cover the split itself.
#
# Last, the administrators' registry file is imported into the same registry and read
# back.
#
# Usage: wine-walk.sh LOADER.exe hmSubagent.dll hmSubagent.reg
set -euo pipefail

loader=$(readlink -f "$1")
dll=$(readlink -f "$2")
regFile=$(readlink -f "$3")

# shellcheck source=wine-prefix.sh
source "$(dirname "$0")/wine-prefix.sh"

# A description of 70 characters, longer than the 63 the system group publishes.
long=a123456789b123456789c123456789d123456789e123456789f123456789g123456789
cat >"$work/hmSubagent.conf" <<CONF
# Written by the Windows loader test.
platformdescription = Fleet test rack
platformid = 42
TrapsEnabled = 1
setsenabled = 1
debugenabled = 1
manufacturer = "Example Systems"
productname = Model 7
productversion = 2.4
productbuildnumber = 1187
productdescription = $long
CONF
key='HKLM\SOFTWARE\Arveni\FleetwatchSNMP\Parameters'
# The query service's built-in demo server, by configuration (the Windows build's default
# is the server's own BMC and SMBIOS table, checked last).
printf 'source=demo\n' >"$work/kelvarn.conf"
export KELVARN_CONFIG
KELVARN_CONFIG=$(windowsPath "$work/kelvarn.conf")
"$wine" reg add "$key" /v ConfigFile /t REG_SZ /d "$(windowsPath "$work/hmSubagent.conf")" /f >/dev/null 2>&1
"$wine" reg add "$key" /v LogFile /t REG_SZ /d "$(windowsPath "$work/hmSubagent.log")" /f >/dev/null 2>&1

sys=1.3.6.1.4.1.64999.2.10.3.5.100
set +e
timeout 120 "$wine" "$loader" "$(windowsPath "$dll")" --inventory --walk 1.3.6.1.4.1.64999 \
    --get $sys.3.0 --get $sys.7.0 --get $sys.11.0 --get 1.3.6.1.4.1.64999.1 >"$work/raw.txt" 2>&1
status=$?
set -e
# The Windows console runtime ends lines with CR LF.
out=$work/out.txt
tr -d '\r' <"$work/raw.txt" >"$out"
check "loader runs the agent (exit status $status)" test "$status" -eq 0
if [ "$status" -ne 0 ]; then
    sed 's/^/  | /' "$out"
fi

has() { grep -qxF -- "$1" "$out"; }
hasAll() {
    local line missing=0
    while IFS= read -r line; do
        [ -n "$line" ] || continue
        if ! has "$line"; then
            echo "  missing: $line"
            missing=1
        fi
    done
    return $missing
}

base=1.3.6.1.4.1.64999.2.10.3.5
regionsOk() {
    diff <(grep '^region ' "$out") - <<REGIONS
region 1: $base.100
region 2: $base.200
region 3: $base.300.10
region 4: $base.400.10
region 5: $base.400.20
region 6: $base.400.30
region 7: $base.400.40
region 8: $base.500.10
region 9: $base.500.20
region 10: $base.600.10
region 11: $base.600.20
region 12: $base.600.30
region 13: $base.600.40
region 14: $base.700.10
REGIONS
}
check "SnmpExtensionInit and SnmpExtensionInitEx hand out the 14 regions in order" regionsOk
check "SnmpExtensionInitEx ends with FALSE after the last region" has "start-up done: 14 regions"

systemGroupOk() {
    hasAll <<LINES
$sys.2.0 = STRING: "Fleet test rack"
$sys.3.0 = INTEGER: 42
$sys.4.0 = INTEGER: 1
$sys.5.0 = INTEGER: 0
$sys.6.0 = STRING: "Example Systems"
$sys.7.0 = STRING: "Model 7"
$sys.8.0 = STRING: "2.4"
$sys.9.0 = STRING: "1187"
$sys.10.0 = STRING: "a123456789b123456789c123456789d123456789e123456789f123456789g12"
LINES
}
check "the walk shows the system group from the configuration file" systemGroupOk
check "the walk shows the overall health as a status number" grep -qE "^$sys\\.1\\.0 = INTEGER: [1-6]\$" "$out"
walkOrderOk() {
    # The walk's variables, in the order answered, are in ascending OID order.
    awk '/^walk: / { exit } / = / { sub(/ = .*/, ""); print }' "$out" >"$work/walked"
    [ -s "$work/walked" ] && sort -C -t. -k1,1n -k2,2n -k3,3n -k4,4n -k5,5n -k6,6n -k7,7n -k8,8n -k9,9n \
        -k10,10n -k11,11n -k12,12n -k13,13n -k14,14n -k15,15n -k16,16n "$work/walked"
}
check "the walk answers in ascending OID order" walkOrderOk
walked=$(sed -nE 's/^walk: ([0-9]+) variables, .*/\1/p' "$out")
check "the walk of ${walked:-no} variables ends at the first OID after the agent's view" \
    grep -qE '^walk: [0-9]+ variables, next name 1\.3\.6\.1\.4\.1\.64999\.2\.10\.3\.6$' "$out"
getsOk() {
    hasAll <<LINES
$sys.3.0 = INTEGER: 42
$sys.7.0 = STRING: "Model 7"
$sys.11.0: error status 2 index 1
1.3.6.1.4.1.64999.1: error status 2 index 1
LINES
}
check "GETs answer the configured values, and noSuchName for names that are not variables" getsOk
check "the exported inventory counters answer" grep -qE '^inventory: [1-9][0-9]* processors, [0-9]+ present$' "$out"
# The index column of table row k reads k, and the processor and memory-array tables have
# one row for each processor socket and memory array the inventory functions count.
indexColumn() { # indexColumn TABLE-OID COUNT
    local expected="" k
    for ((k = 1; k <= $2; k++)); do
        expected+="$1.1.1.$k = INTEGER: $k"$'\n'
    done
    diff <(awk '/^walk: / { exit } { print }' "$out" | grep -F "$1.1.1.") - <<<"${expected%$'\n'}"
}
tablesOk() {
    local processors arrays
    processors=$(sed -nE 's/^inventory: ([0-9]+) processors, .*/\1/p' "$out")
    arrays=$(sed -nE 's/^inventory: ([0-9]+) memory arrays$/\1/p' "$out")
    [ -n "$processors" ] && [ -n "$arrays" ] && indexColumn $base.300.10 "$processors" &&
        indexColumn $base.500.10 "$arrays"
}
check "the processor and memory-array tables have a row for each processor and memory array counted" tablesOk
check "SnmpExtensionClose returns" has "closed"

log=$work/hmSubagent.log
traceOk() {
    # The trace opens while the configuration file is read (debugenabled=1).
    [ -f "$log" ] && grep -qF "ptKey=:manufacturer:, stValue=:Example Systems:" "$log" &&
        grep -qF " InitDone " "$log" && grep -qF "SNMP Extension Agent closing" "$log"
}
check "the trace file named by the LogFile registry value records the configuration, start-up and close" traceOk

# A query service without its data source: every query fails in kelvarn.dll with an
# exception that hmSubagent.dll catches and traces; start-up then fails cleanly.
"$wine" reg add "$key" /v LogFile /t REG_SZ /d "$(windowsPath "$work/unavailable.log")" /f >/dev/null 2>&1
set +e
KELVARN_CONFIG=$(windowsPath "$work/missing.conf") timeout 120 "$wine" "$loader" "$(windowsPath "$dll")" \
    >"$work/raw-unavailable.txt" 2>&1
status=$?
set -e
unavailableOk() {
    [ "$status" -eq 1 ] && tr -d '\r' <"$work/raw-unavailable.txt" | grep -qxF "SnmpExtensionInit failed" &&
        grep -qF "error is: data source unavailable: $(windowsPath "$work/missing.conf"): cannot be opened" \
            "$work/unavailable.log"
}
check "query failures thrown in kelvarn.dll are caught and traced by the agent (start-up fails, exit status $status)" \
    unavailableOk

# No configuration: the Windows build reads the live sources (bmc=ipmi-inband,
# smbios=firmware). Wine has no IPMI driver, so no Microsoft_IPMI: the agent starts with
# its IPMI groups (400, 600 and 700) empty, traces why, and publishes nothing of the demo
# server. Run from drive C: so that no \etc\kelvarn\kelvarn.conf of the build machine is read.
"$wine" reg add "$key" /v LogFile /t REG_SZ /d "$(windowsPath "$work/default.log")" /f >/dev/null 2>&1
set +e
(cd "$WINEPREFIX/drive_c" && env -u KELVARN_CONFIG timeout 120 "$wine" "$loader" "$(windowsPath "$dll")" \
    --walk 1.3.6.1.4.1.64999 >"$work/raw-default.txt" 2>&1)
status=$?
set -e
tr -d '\r' <"$work/raw-default.txt" >"$work/default.txt"
walked=$(sed -nE 's/^walk: ([0-9]+) variables, .*/\1/p' "$work/default.txt")
check "with no configuration the agent starts without the IPMI driver, walks ${walked:-no} variables and closes" \
    grep -qxF closed "$work/default.txt"
check "the trace gives the reason: Microsoft_IPMI not available" \
    grep -qF "Microsoft_IPMI not available: " "$work/default.log"
walkedWithout() { grep -q '^walk: ' "$work/default.txt" && ! grep -qE "$1" "$work/default.txt"; }
check "no variable of the IPMI groups is published" walkedWithout "^$base\.(400|600|700)\."
check "nothing of the demo server is published" walkedWithout "Arkfield|AF2210|Inlet Temp|CPU1 Temp"

regFileOk() {
    "$wine" reg import "$(windowsPath "$regFile")" >/dev/null 2>&1 || return 1
    "$wine" reg query "$key" /v ConfigFile 2>/dev/null | tr -d '\r' >"$work/query.txt"
    "$wine" reg query 'HKLM\SOFTWARE\Arveni\FleetwatchSNMP\CurrentVersion' /v Pathname 2>/dev/null |
        tr -d '\r' >>"$work/query.txt"
    grep -qE 'ConfigFile +REG_SZ +C:\\Program Files\\Arveni\\FleetwatchSNMP\\hmSubagent\.conf$' "$work/query.txt" &&
        grep -qE 'Pathname +REG_SZ +C:\\Program Files\\Arveni\\FleetwatchSNMP\\hmSubagent\.dll$' "$work/query.txt"
}
check "hmSubagent.reg imports and sets ConfigFile and Pathname" regFileOk

echo "skipped: the trap split of SnmpExtensionTrap (Wine's mgmtapi SnmpMgrStrToOid is a stub; winextdll.sh covers it)"
if [ "$failures" -ne 0 ]; then
    echo "--- loader output"
    cat "$out"
    echo "--- loader output with no configuration"
    cat "$work/default.txt"
    echo "--- its trace"
    grep -iE "ipmi|fail|error" "$work/default.log" | head -20
    exit 1
fi
