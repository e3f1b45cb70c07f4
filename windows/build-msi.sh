#!/usr/bin/env bash
# Builds the Windows Installer package of hmSubagent with msitools:
#   build-msi.sh VERSION PACKAGE-FOLDER OUTPUT.msi
# PACKAGE-FOLDER holds hmSubagent.dll, kelvarn.dll, pickmere.dll, hmSubagent.conf and
# kelvarn.conf. wixl writes neither the Permanent nor the NeverOverwrite attribute of a
# component, so the configuration files' components get them afterwards with msibuild:
# 400 = 64-bit (256) + permanent (16) + never overwrite (128). Removal then keeps the
# configuration files and an upgrade keeps the administrator's.
set -euo pipefail
[ $# -eq 3 ] || { echo "usage: build-msi.sh VERSION PACKAGE-FOLDER OUTPUT.msi" >&2; exit 2; }
version=$1
package=$(readlink -f "$2")
output=$(readlink -f "$3")
wxs=$(readlink -f "$(dirname "$0")/hmSubagent.wxs")
for tool in wixl msibuild; do
    command -v "$tool" >/dev/null || { echo "build-msi.sh: $tool is needed (Debian packages wixl and msitools)" >&2; exit 1; }
done
# wixl wants the sources' paths relative to the folder it runs in.
cd "$package"
wixl -a x64 -D Version="$version" -D SourceDir=. -o "$output.tmp" "$wxs"
for component in Configuration QueryServiceConfiguration; do
    msibuild "$output.tmp" -q "UPDATE Component SET Attributes = 400 WHERE Component = '$component'"
done
mv "$output.tmp" "$output"
