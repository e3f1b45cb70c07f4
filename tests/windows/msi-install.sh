#!/usr/bin/env bash
# Installs, upgrades and removes the Windows Installer package under Wine, as an
# administrator's deployment tool would (msiexec /i, /x, quiet), and checks what each step
# leaves on the machine: the DLLs in the system folder, the registry values the SNMP service
# and the agent read, the configuration file; the installed agent is then started by the
# loader through the registry's own path and reads the installed configuration.
#
# Usage: msi-install.sh build-msi.sh PACKAGE.msi PACKAGE-FOLDER hm-loader.exe VERSION
set -euo pipefail

buildMsi=$(readlink -f "$1")
msi=$(readlink -f "$2")
package=$(readlink -f "$3")
loader=$(readlink -f "$4")
version=$5

command -v msiinfo >/dev/null || { echo "FAIL: msitools is needed (Debian packages msitools, wixl)"; exit 1; }
# shellcheck source=wine-prefix.sh
source "$(dirname "$0")/wine-prefix.sh"
msiexec() { "$wine" msiexec "$@" /qn >/dev/null 2>&1; }
regValue() { # regValue KEY NAME: the value's data, or nothing (status 1) when it is absent
    "$wine" reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' |
        sed -nE "s/^ +$2 +REG_SZ +//p" | grep .
}

# The package's own tables, read without installing it.
msiinfo export "$msi" Component >"$work/component.idt"
msiinfo export "$msi" Registry >"$work/registry.idt"
msiinfo export "$msi" Property >"$work/property.idt"
check "the package's version is $version" grep -qxP "ProductVersion\t$version\r?" "$work/property.idt"
check "the configuration files' components are 64-bit, permanent and never overwritten (400)" \
    test "$(grep -cP "^(Configuration|QueryServiceConfiguration)\t\{[0-9A-F-]+\}\tINSTALLDIR\t400\t" \
        "$work/component.idt")" -eq 2
check "the package registers the agent with the SNMP service" \
    grep -qF 'SYSTEM\CurrentControlSet\Services\SNMP\Parameters\ExtensionAgents	hmSubagent	SOFTWARE\Arveni\FleetwatchSNMP\CurrentVersion' \
    "$work/registry.idt"

drive=$WINEPREFIX/drive_c
system=$drive/windows/system32
folder="$drive/Program Files/Arveni/FleetwatchSNMP"
params='HKLM\SOFTWARE\Arveni\FleetwatchSNMP\Parameters'
current='HKLM\SOFTWARE\Arveni\FleetwatchSNMP\CurrentVersion'
agents='HKLM\SYSTEM\CurrentControlSet\Services\SNMP\Parameters\ExtensionAgents'
environment='HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment'

check "msiexec /i installs the package" msiexec /i "$(windowsPath "$msi")"
installedOk() {
    cmp -s "$package/hmSubagent.dll" "$system/hmSubagent.dll" &&
        cmp -s "$package/kelvarn.dll" "$system/kelvarn.dll" &&
        cmp -s "$package/pickmere.dll" "$system/pickmere.dll" &&
        cmp -s "$package/hmSubagent.conf" "$folder/hmSubagent.conf" &&
        grep -qx "bmc = ipmi-inband" "$folder/kelvarn.conf" && grep -qx "smbios = firmware" "$folder/kelvarn.conf"
}
check "the DLLs are in the system folder and the configuration files (live sources) in the installation folder" \
    installedOk
registryOk() {
    [ "$(regValue "$params" ConfigFile)" = 'C:\Program Files\Arveni\FleetwatchSNMP\hmSubagent.conf' ] &&
        [ "$(regValue "$params" LogFile)" = 'C:\Program Files\Arveni\FleetwatchSNMP\hmSubagent.log' ] &&
        [ "$(regValue "$current" Pathname)" = 'C:\windows\system32\hmSubagent.dll' ] &&
        [ "$(regValue "$agents" hmSubagent)" = 'SOFTWARE\Arveni\FleetwatchSNMP\CurrentVersion' ] &&
        [ "$(regValue "$environment" KELVARN_CONFIG)" = 'C:\Program Files\Arveni\FleetwatchSNMP\kelvarn.conf' ]
}
check "the registry names the configuration files, the trace file, the DLL and the extension agent" registryOk

# The loader opens the DLL the registry names, as the SNMP service does.
describe() { # describe: the system group's description as the installed agent answers it
    local dll
    dll=$(regValue "$current" Pathname) || return 1
    timeout 120 "$wine" "$loader" "$dll" --get 1.3.6.1.4.1.64999.2.10.3.5.100.2.0 2>&1 | tr -d '\r' |
        sed -nE 's/^1\.3\.6\.1\.4\.1\.64999\.2\.10\.3\.5\.100\.2\.0 = STRING: "(.*)"$/\1/p'
}
check "the installed agent answers from the installed configuration" \
    test "$(describe)" = "2U dual-socket rack server"
check "the installed agent writes its trace where the registry says" \
    grep -qF "SNMP Extension Agent closing" "$folder/hmSubagent.log"

# An administrator edits the configuration; an upgrade (a higher version) keeps the edit.
sed -i 's/^platformdescription = .*/platformdescription = "Rack 12, edited"/' "$folder/hmSubagent.conf"
sed -i 's/^bmc = ipmi-inband$/source = demo/; /^smbios = /d' "$folder/kelvarn.conf"
IFS=. read -r major minor patch <<<"$version"
next=$major.$minor.$((patch + 1))
bash "$buildMsi" "$next" "$package" "$work/next.msi"
check "msiexec /i of version $next upgrades the package" msiexec /i "$(windowsPath "$work/next.msi")"
productsOk() {
    "$wine" reg query 'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall' /s 2>/dev/null | tr -d '\r' |
        grep -E '^ +(DisplayName|DisplayVersion) ' >"$work/products.txt"
    [ "$(grep -cE 'DisplayName +REG_SZ +hmSubagent$' "$work/products.txt")" -eq 1 ] &&
        grep -qE "DisplayVersion +REG_SZ +$next\$" "$work/products.txt" &&
        ! grep -qE "DisplayVersion +REG_SZ +$version\$" "$work/products.txt"
}
check "after the upgrade one hmSubagent is installed, version $next" productsOk
check "the upgrade keeps the edited configuration file" test "$(describe)" = "Rack 12, edited"
check "the upgrade keeps the edited query service configuration" grep -qx "source = demo" "$folder/kelvarn.conf"
check "the upgrade leaves the DLLs and the registration in place" registryOk

check "msiexec /x removes the package" msiexec /x "$(windowsPath "$work/next.msi")"
removedOk() {
    [ ! -e "$system/hmSubagent.dll" ] && [ ! -e "$system/kelvarn.dll" ] && [ ! -e "$system/pickmere.dll" ] &&
        ! regValue "$agents" hmSubagent >/dev/null && ! regValue "$current" Pathname >/dev/null &&
        ! regValue "$params" ConfigFile >/dev/null && ! regValue "$environment" KELVARN_CONFIG >/dev/null
}
check "removal takes away the DLLs, the registration and the agent's registry values" removedOk
check "removal keeps the administrator's configuration files" \
    grep -qxF 'platformdescription = "Rack 12, edited"' "$folder/hmSubagent.conf" &&
    grep -qx "source = demo" "$folder/kelvarn.conf"

[ "$failures" -eq 0 ]
