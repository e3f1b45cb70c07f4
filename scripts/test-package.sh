#!/usr/bin/env bash
# Builds the Debian package from a copy of the tree (nothing is written in the
# checkout), checks it with lintian (no error, no warning), then installs it in a
# fresh Debian 12 root made by debootstrap: its dependencies come from Debian's
# archive, hmagentd started with the unit's ExecStart line drops to the package's
# user and answers a walk of the demo server, an edited conffile survives a
# reinstall, and purge leaves no file of the package behind.
# The pristine root is made once and kept in $HM_PACKAGE_ROOT_CACHE (default
# /var/cache/hmsubagent-test); each run works on a copy of it.
# Usage: scripts/test-package.sh   (root or sudo: debootstrap and chroot)
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "$(id -u)" -ne 0 ]; then exec sudo -E bash "$0" "$@"; fi
cache=${HM_PACKAGE_ROOT_CACHE:-/var/cache/hmsubagent-test}
mirror=http://deb.debian.org/debian
start=$(date +%s)

fail() { echo "test-package: FAIL: $*" >&2; exit 1; }

# The version lives in CMakeLists.txt's project(); debian/changelog must agree.
version=$(sed -n 's/^project(hmSubagent VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
changelog=$(dpkg-parsechangelog -l debian/changelog -S Version)
[ "$version" = "$changelog" ] ||
    fail "debian/changelog has version $changelog, CMakeLists.txt $version"

tmp=$(mktemp -d /var/tmp/hmsubagent-package.XXXXXX)
root=$tmp/root
daemon=""
cleanup() {
    [ -n "$daemon" ] && kill "$daemon" 2>/dev/null && wait "$daemon" 2>/dev/null
    mountpoint -q "$root/proc" && umount "$root/proc"
    rm -rf "$tmp"
}
trap cleanup EXIT

echo "=== package: build"
mkdir "$tmp/src"
git ls-files -co --exclude-standard -z | tar --null -T - -cf - | tar -C "$tmp/src" -xf -
(cd "$tmp/src" && dpkg-buildpackage -us -uc -b -j"$(nproc)" >"$tmp/build.log" 2>&1) ||
    { tail -40 "$tmp/build.log"; fail "dpkg-buildpackage"; }
deb=$(echo "$tmp"/hmsubagent_"$version"_*.deb)
[ -f "$deb" ] || fail "no package built"

echo "=== package: lintian"
lintian --fail-on error,warning "$deb" || fail "lintian"

echo "=== package: Debian 12 root"
if [ ! -e "$cache/bookworm-root/.complete" ]; then
    t=$(date +%s)
    rm -rf "$cache/bookworm-root"
    mkdir -p "$cache"
    debootstrap --variant=minbase bookworm "$cache/bookworm-root" "$mirror" >"$tmp/debootstrap.log" 2>&1 ||
        { tail -20 "$tmp/debootstrap.log"; fail "debootstrap"; }
    touch "$cache/bookworm-root/.complete"
    echo "made $cache/bookworm-root in $(($(date +%s) - t)) s"
fi
cp -a "$cache/bookworm-root" "$root"
cp /etc/resolv.conf "$root/etc/resolv.conf"
# No service starts inside the root.
printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
chmod +x "$root/usr/sbin/policy-rc.d"
mount -t proc proc "$root/proc"
in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive "$@"; }
cp "$deb" "$root/tmp/hmsubagent.deb"

echo "=== package: dependencies from Debian's archive"
in_root apt-get update -qq
in_root apt-get satisfy -y -qq --no-install-recommends "$(dpkg-deb -f "$deb" Depends)" >/dev/null
# Every file of the root but the package manager's own records, before and after;
# the system user stays, as Debian leaves them, with its account files' backups and
# adduser's lock.
snapshot() {
    (cd "$root" && find . -xdev \( -path ./proc -o -path './etc/*-' -o -path ./run/adduser -o -path ./tmp -o -path ./dev -o -path ./var/lib/dpkg \
        -o -path ./var/log/apt -o -path ./var/log/dpkg.log -o -path ./var/cache/debconf \
        -o -path ./var/cache/apt -o -path ./var/lib/apt \) -prune -o -print | sort)
}
snapshot >"$tmp/before"

echo "=== package: install"
in_root dpkg -i /tmp/hmsubagent.deb >/dev/null
in_root getent passwd hmsubagent >/dev/null || fail "no user hmsubagent"
# remove stops the unit.
dpkg-deb -e "$deb" "$tmp/control"
grep -q 'deb-systemd-invoke stop .*hmagentd.service' "$tmp/control/prerm" || fail "prerm does not stop hmagentd"

# The default configuration reads this server's BMC in-band; the root has no IPMI
# device, so the unit's start condition says so in one line and refuses.
if msg=$(in_root /usr/libexec/hmsubagent/check-bmc 2>&1); then fail "check-bmc passes without a BMC"; fi
case $msg in "hmagentd: not started: /etc/kelvarn/kelvarn.conf reads the BMC in-band"*) ;;
    *) fail "check-bmc said: $msg" ;; esac

# An administrator's edits: the demo server for this test and a free loopback port.
port=$(python3 -c 'import socket; s=socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
conf=$root/etc/hmsubagent/hmagentd.conf
sed -i "s|^agentaddress .*|agentaddress udp:127.0.0.1:$port|" "$conf"
printf 'source=demo\n' >"$root/tmp/demo.conf"
in_root dpkg -i /tmp/hmsubagent.deb >/dev/null
grep -q "^agentaddress udp:127.0.0.1:$port\$" "$conf" || fail "the edited conffile was replaced on reinstall"
in_root KELVARN_CONFIG=/tmp/demo.conf /usr/libexec/hmsubagent/check-bmc || fail "check-bmc refuses the demo server"

echo "=== package: hmagentd from the unit's ExecStart line"
unit=$root/lib/systemd/system/hmagentd.service
exec_start=$(sed -n 's/^ExecStart=//p' "$unit")
persistent=$(sed -n 's/^Environment=SNMP_PERSISTENT_DIR=//p' "$unit")
# What systemd makes from StateDirectory=, CacheDirectory= and LogsDirectory=.
mkdir -p "$root/var/lib/hmsubagent" "$root/var/cache/hmsubagent" "$root/var/log/hmsubagent"
# shellcheck disable=SC2086 # the ExecStart line is split into words, as systemd does
chroot "$root" env -i PATH=/usr/sbin:/usr/bin KELVARN_CONFIG=/tmp/demo.conf \
    SNMP_PERSISTENT_DIR="$persistent" $exec_start >"$tmp/hmagentd.log" 2>&1 &
daemon=$!
walk=""
for _ in $(seq 1 60); do
    walk=$(snmpwalk -v2c -c public -On -t 1 -r 0 "127.0.0.1:$port" .1.3.6.1.4.1.64999 2>/dev/null) && break
    kill -0 "$daemon" 2>/dev/null || { cat "$tmp/hmagentd.log"; fail "hmagentd exited"; }
    sleep 0.5
done
grep -q 'STRING: "CPU2 Temp"' <<<"$walk" || { cat "$tmp/hmagentd.log"; fail "the walk has no demo sensor"; }
uid=$(in_root id -u hmsubagent)
grep -q "^Uid:[[:space:]]*${uid}[[:space:]]" "/proc/$daemon/status" 2>/dev/null ||
    grep -q "running as user hmsubagent" "$tmp/hmagentd.log" || fail "hmagentd did not become hmsubagent"
kill "$daemon"
wait "$daemon" || true
daemon=""
echo "walk: $(wc -l <<<"$walk") variables"

echo "=== package: purge"
in_root dpkg --purge hmsubagent >/dev/null
snapshot >"$tmp/after"
diff "$tmp/before" "$tmp/after" || fail "purge left files behind (or removed some)"
echo "=== package: passed in $(($(date +%s) - start)) s"
