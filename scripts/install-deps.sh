#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, only when missing.
# Usage: scripts/install-deps.sh [build|test]
set -euo pipefail

packages=(build-essential cmake ninja-build pkg-config nlohmann-json3-dev libfreeipmi-dev libsnmp-dev libbenchmark-dev)
if [ "${1:-build}" = test ]; then
    packages+=(googletest libgtest-dev libgmock-dev clang-format clang-tidy snmp snmpd snmptrapd smitools dmidecode ipmitool openipmi freeipmi-tools clang libclang-rt-14-dev
               debhelper dpkg-dev fakeroot lintian debootstrap
               prometheus-snmp-exporter prometheus-ipmi-exporter prometheus zabbix-server-pgsql zabbix-frontend-php php-cli php-pgsql postgresql)
fi

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive

# Packages such as snmpd start a system service when installed; the project's tests
# start their own servers on temporary loopback ports, so keep the system's ones off.
guard=""
if [ ! -e /usr/sbin/policy-rc.d ]; then
    printf '#!/bin/sh\nexit 101\n' | $sudo tee /usr/sbin/policy-rc.d >/dev/null
    $sudo chmod +x /usr/sbin/policy-rc.d
    guard=/usr/sbin/policy-rc.d
fi
trap '[ -n "$guard" ] && $sudo rm -f "$guard"' EXIT

$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
