# Sourced by the Wine checks: finds Wine, makes a headless prefix of the check's own under
# /tmp (no Mono or Gecko installers) that is removed on exit, and defines `check`, which
# prints an "ok:" or "FAIL:" line and counts the failures in $failures, and `windowsPath`.
# Sets wine, wineserver, work (the temporary folder) and WINEPREFIX.
wine=$(command -v wine64 || true)
[ -n "$wine" ] || { [ -x /usr/lib/wine/wine64 ] && wine=/usr/lib/wine/wine64; } || true
[ -n "$wine" ] || wine=$(command -v wine || true)
wineserver=$(command -v wineserver || true)
[ -n "$wineserver" ] || { [ -x /usr/lib/wine/wineserver64 ] && wineserver=/usr/lib/wine/wineserver64; } || true
if [ -z "$wine" ] || [ -z "$wineserver" ]; then
    echo "FAIL: Wine is needed (Debian package wine64)"
    exit 1
fi

work=$(mktemp -d /tmp/hmwine.XXXXXX)
export WINEPREFIX=$work/prefix WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY
cleanup() {
    "$wineserver" -k >/dev/null 2>&1 || true
    rm -rf "$work"
}
trap cleanup EXIT

failures=0
check() { # check DESCRIPTION COMMAND...
    local what=$1
    shift
    if "$@"; then
        echo "ok: $what"
    else
        echo "FAIL: $what"
        failures=$((failures + 1))
    fi
}
windowsPath() { local p=${1//\//\\}; printf 'Z:%s' "$p"; }

start=$(date +%s)
"$wine" wineboot --init >/dev/null 2>&1
echo "ok: Wine prefix ready in $(($(date +%s) - start)) s"
