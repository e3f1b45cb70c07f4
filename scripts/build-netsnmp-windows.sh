#!/usr/bin/env bash
# Cross-builds net-snmp's snmpd for 64-bit Windows with mingw-w64, with the winExtDLL
# module: the agent that loads Windows SNMP extension DLLs from the registry
# (HKLM\SYSTEM\CurrentControlSet\Services\SNMP\Parameters\ExtensionAgents, as the
# Windows SNMP service does). The Windows checks run it under Wine as a second host of
# hmSubagent.dll. Only snmpd is built: no tools, no Perl, no OpenSSL (net-snmp's own
# MD5), the mini agent's MIB modules plus winExtDLL, UDP over IPv4 only.
#
# The source is Debian 12's net-snmp source package, fetched with a private apt source
# list (the system's apt sources are left alone). The result is cached outside the
# repository and built again only when missing:
#     ${XDG_CACHE_HOME:-$HOME/.cache}/hmsubagent/netsnmp-5.9.3-win64/bin/snmpd.exe
# Prints the path of snmpd.exe on its last line.
# Usage: scripts/build-netsnmp-windows.sh
set -euo pipefail

version=5.9.3
cache=${HM_NETSNMP_WIN64:-${XDG_CACHE_HOME:-$HOME/.cache}/hmsubagent/netsnmp-$version-win64}
snmpd=$cache/bin/snmpd.exe
if [ -x "$snmpd" ]; then
    echo "=== net-snmp for Windows: cached in $cache"
    echo "$snmpd"
    exit 0
fi

packages=(gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 make xz-utils debian-archive-keyring)
missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
if [ ${#missing[@]} -ne 0 ]; then
    echo "=== net-snmp for Windows: installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get update -qq
    $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

started=$SECONDS
work=$(mktemp -d /tmp/hmnetsnmp.XXXXXX)
trap 'rm -rf "$work"' EXIT

# The source package, from a source list of our own (Debian 12 and its security updates).
echo "=== net-snmp for Windows: fetching the source of net-snmp $version"
apt=$work/apt
mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial"
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
printf 'deb-src [signed-by=%s] http://deb.debian.org/debian bookworm main\ndeb-src [signed-by=%s] http://deb.debian.org/debian-security bookworm-security main\n' \
    "$keyring" "$keyring" >"$apt/sources.list"
options=(-o "Dir::Etc::SourceList=$apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
         -o "Dir::State::Lists=$apt/lists" -o "Dir::Cache=$apt/cache" -o Debug::NoLocking=1)
# The folder is private to this user: apt's download sandbox user could not write to it.
[ "$(id -u)" -ne 0 ] || options+=(-o APT::Sandbox::User=root)
apt-get "${options[@]}" update -qq
(cd "$work" && apt-get "${options[@]}" source --download-only -qq net-snmp >/dev/null)
tarball=$(ls "$work"/net-snmp_"$version"*.orig.tar.xz)
tar -C "$work" -xf "$tarball"
src=$work/net-snmp-$version

# Wine's snmpapi.dll stubs SnmpSvcInitUptime, which the Windows SNMP service calls once
# to start its uptime count (Wine's SnmpSvcGetUptime counts from the DLL's load): the
# one call in winExtDLL.c is left out, so that snmpd starts under Wine.
sed -i 's|^    SnmpSvcInitUptime();$|    /* SnmpSvcInitUptime(): a stub in Wine */|' "$src/agent/mibgroup/winExtDLL.c"
grep -qF '/* SnmpSvcInitUptime(): a stub in Wine */' "$src/agent/mibgroup/winExtDLL.c" ||
    { echo "error: winExtDLL.c does not call SnmpSvcInitUptime where expected" >&2; exit 1; }

# mingw-w64's GCC with the posix thread model, as the project's Windows build uses.
host=x86_64-w64-mingw32
cc=$(command -v $host-gcc-posix || command -v $host-gcc)
echo "=== net-snmp for Windows: configure ($cc)"
(cd "$src" && nice -n 5 ./configure --host=$host --build="$(uname -m)-pc-linux-gnu" CC="$cc" \
    --prefix=C:/usr --with-defaults --disable-shared --enable-static \
    --disable-embedded-perl --without-perl-modules --without-openssl --without-pcre --without-rpm \
    --disable-applications --disable-manuals --disable-scripts --disable-mibs \
    --enable-mini-agent --with-mib-modules=winExtDLL \
    --with-transports="UDP UDPIPv6" --with-out-transports="TCP TCPIPv6 Unix Callback Alias" >"$work/configure.log" 2>&1) ||
    { tail -30 "$work/configure.log"; exit 1; }

echo "=== net-snmp for Windows: build (library and snmpd)"
# -all-static (libtool's -static for the compiler): libgcc and winpthread come from their
# archives, so snmpd.exe needs only Windows system DLLs.
if ! (cd "$src" && nice -n 5 make -j2 -C snmplib >"$work/make.log" 2>&1 &&
      nice -n 5 make -j2 -C agent LDFLAGS=-all-static >>"$work/make.log" 2>&1); then
    tail -40 "$work/make.log"
    exit 1
fi

mkdir -p "$cache/bin"
install -m 0755 "$src/agent/snmpd.exe" "$snmpd.tmp"
mv "$snmpd.tmp" "$snmpd"
echo "=== net-snmp for Windows: built in $((SECONDS - started)) s, cached in $cache"
echo "$snmpd"
