<#
.SYNOPSIS
    Installs hmSubagent.dll as an extension agent of the Windows SNMP service, or removes it.

.DESCRIPTION
    Copies hmSubagent.dll and the query-service DLLs it needs (kelvarn.dll, pickmere.dll)
    into the installation folder, keeps an existing configuration file or installs the
    sample one, does the same for the query service's configuration kelvarn.conf (the
    server's own BMC through Windows' IPMI driver and its SMBIOS table: bmc=ipmi-inband,
    smbios=firmware), and writes the registry:

      HKLM\SOFTWARE\Arveni\FleetwatchSNMP\Parameters
          ConfigFile   path of the configuration file
          LogFile      path of the debug trace file
      HKLM\SOFTWARE\Arveni\FleetwatchSNMP\CurrentVersion
          Pathname     path of hmSubagent.dll
      HKLM\SYSTEM\CurrentControlSet\Services\SNMP\Parameters\ExtensionAgents
          <n>          "SOFTWARE\Arveni\FleetwatchSNMP\CurrentVersion", under the first free number
      HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment
          KELVARN_CONFIG  path of kelvarn.conf (kept when it names another existing file)

    The installation folder is added to the system PATH so that the SNMP service finds
    kelvarn.dll and pickmere.dll; Windows services see a changed PATH after a restart of
    the computer. Installing into the system folder (-InstallDir $env:SystemRoot\System32)
    needs no PATH entry. The SNMP service is restarted when it is running.

    Run from an elevated PowerShell in the folder that holds the DLLs.

.PARAMETER InstallDir
    Where the DLLs go. Default: "$env:ProgramFiles\Arveni\FleetwatchSNMP".

.PARAMETER ConfigFile
    The configuration file. Default: hmSubagent.conf in InstallDir. At most 127 characters.

.PARAMETER LogFile
    The debug trace file, written when the configuration sets debugenabled=1. Default:
    hmSubagent.log in InstallDir. At most 127 characters.

.PARAMETER Uninstall
    Removes the registration, the registry keys, the DLLs, the PATH entry and
    KELVARN_CONFIG when it names the installed kelvarn.conf. The configuration and trace
    files are kept.

.EXAMPLE
    .\install-hmSubagent.ps1
.EXAMPLE
    .\install-hmSubagent.ps1 -ConfigFile D:\snmp\hmSubagent.conf -LogFile D:\snmp\hmSubagent.log
.EXAMPLE
    .\install-hmSubagent.ps1 -Uninstall
#>
[CmdletBinding()]
param(
    [string]$InstallDir = (Join-Path $env:ProgramFiles 'Arveni\FleetwatchSNMP'),
    [string]$ConfigFile = '',
    [string]$LogFile = '',
    [switch]$Uninstall
)

Set-StrictMode -Version 2.0
$ErrorActionPreference = 'Stop'

$dlls = @('hmSubagent.dll', 'kelvarn.dll', 'pickmere.dll')
$queryConfigName = 'kelvarn.conf'
$agentKeyName = 'SOFTWARE\Arveni\FleetwatchSNMP'
$agentKey = "HKLM:\$agentKeyName"
$parametersKey = "$agentKey\Parameters"
$currentVersionKeyName = "$agentKeyName\CurrentVersion"
$currentVersionKey = "HKLM:\$currentVersionKeyName"
$extensionAgentsKey = 'HKLM:\SYSTEM\CurrentControlSet\Services\SNMP\Parameters\ExtensionAgents'
$environmentKey = 'HKLM:\SYSTEM\CurrentControlSet\Control\Session Manager\Environment'
# The agent reads each registry path into a 128-byte buffer.
$maxPathLength = 127

function Assert-Administrator {
    $identity = [Security.Principal.WindowsIdentity]::GetCurrent()
    $principal = New-Object Security.Principal.WindowsPrincipal($identity)
    if (-not $principal.IsInRole([Security.Principal.WindowsBuiltInRole]::Administrator)) {
        throw 'Run this script from an elevated PowerShell (Run as administrator).'
    }
}

# The names under ExtensionAgents whose value points at this agent's CurrentVersion key.
function Get-OwnExtensionAgentNames {
    if (-not (Test-Path $extensionAgentsKey)) { return @() }
    $values = Get-ItemProperty -Path $extensionAgentsKey
    $names = @()
    foreach ($property in $values.PSObject.Properties) {
        # Get-ItemProperty adds PSPath, PSChildName and kin beside the key's values.
        if ($property.Name -like 'PS*') { continue }
        if ([string]$property.Value -ieq $currentVersionKeyName) { $names += $property.Name }
    }
    return $names
}

function Register-ExtensionAgent {
    if (-not (Test-Path $extensionAgentsKey)) {
        throw "The SNMP service is not installed ($extensionAgentsKey is missing). Add the Windows feature 'SNMP Service' first."
    }
    if (@(Get-OwnExtensionAgentNames).Count -gt 0) {
        Write-Host 'The agent is already registered with the SNMP service.'
        return
    }
    $values = Get-ItemProperty -Path $extensionAgentsKey
    $taken = @{}
    foreach ($property in $values.PSObject.Properties) { $taken[$property.Name] = $true }
    $n = 1
    while ($taken.ContainsKey([string]$n)) { $n++ }
    New-ItemProperty -Path $extensionAgentsKey -Name ([string]$n) -PropertyType String `
        -Value $currentVersionKeyName -Force | Out-Null
    Write-Host "Registered with the SNMP service as extension agent $n."
}

function Get-MachinePath {
    return [string](Get-ItemProperty -Path $environmentKey -Name Path).Path
}

function Set-MachinePath([string]$path) {
    Set-ItemProperty -Path $environmentKey -Name Path -Value $path -Type ExpandString
}

function Test-OnMachinePath([string]$dir) {
    foreach ($entry in (Get-MachinePath).Split(';')) {
        if ($entry.TrimEnd('\') -ieq $dir.TrimEnd('\')) { return $true }
    }
    return $false
}

function Restart-SnmpService {
    $service = Get-Service -Name SNMP -ErrorAction SilentlyContinue
    if ($null -ne $service -and $service.Status -eq 'Running') {
        Restart-Service -Name SNMP -Force
        Write-Host 'Restarted the SNMP service.'
    }
}

function Install-Agent {
    $sourceDir = $PSScriptRoot
    foreach ($dll in $dlls) {
        if (-not (Test-Path (Join-Path $sourceDir $dll))) { throw "$dll is missing beside this script." }
    }
    if ($ConfigFile -eq '') { $script:ConfigFile = Join-Path $InstallDir 'hmSubagent.conf' }
    if ($LogFile -eq '') { $script:LogFile = Join-Path $InstallDir 'hmSubagent.log' }
    foreach ($path in @($ConfigFile, $LogFile)) {
        if ($path.Length -gt $maxPathLength) {
            throw "The path '$path' is longer than $maxPathLength characters; the agent could not read it."
        }
    }

    # A running SNMP service keeps the old DLL loaded: stop it while the files change.
    $service = Get-Service -Name SNMP -ErrorAction SilentlyContinue
    $wasRunning = $null -ne $service -and $service.Status -eq 'Running'
    if ($wasRunning) { Stop-Service -Name SNMP -Force }

    New-Item -ItemType Directory -Path $InstallDir -Force | Out-Null
    foreach ($dll in $dlls) { Copy-Item -Path (Join-Path $sourceDir $dll) -Destination $InstallDir -Force }
    Write-Host "Copied $($dlls -join ', ') to $InstallDir."

    if (-not (Test-Path $ConfigFile)) {
        New-Item -ItemType Directory -Path (Split-Path -Parent $ConfigFile) -Force | Out-Null
        $sample = Join-Path $sourceDir 'hmSubagent.conf'
        if (Test-Path $sample) {
            Copy-Item -Path $sample -Destination $ConfigFile
            Write-Host "Installed the sample configuration as $ConfigFile."
        } else {
            Set-Content -Path $ConfigFile -Encoding Ascii -Value @('# hmSubagent configuration', 'trapsenabled = 1', 'debugenabled = 0')
            Write-Host "Wrote a minimal configuration to $ConfigFile."
        }
    } else {
        Write-Host "Kept the existing configuration $ConfigFile."
    }
    Install-QueryServiceConfiguration $sourceDir

    New-Item -Path $parametersKey -Force | Out-Null
    New-ItemProperty -Path $parametersKey -Name ConfigFile -PropertyType String -Value $ConfigFile -Force | Out-Null
    New-ItemProperty -Path $parametersKey -Name LogFile -PropertyType String -Value $LogFile -Force | Out-Null
    New-Item -Path $currentVersionKey -Force | Out-Null
    New-ItemProperty -Path $currentVersionKey -Name Pathname -PropertyType ExpandString `
        -Value (Join-Path $InstallDir 'hmSubagent.dll') -Force | Out-Null
    Write-Host "Wrote $parametersKey (ConfigFile, LogFile) and $currentVersionKey (Pathname)."
    Register-ExtensionAgent

    $systemDir = [Environment]::SystemDirectory
    if (($InstallDir.TrimEnd('\') -ine $systemDir.TrimEnd('\')) -and -not (Test-OnMachinePath $InstallDir)) {
        Set-MachinePath ((Get-MachinePath).TrimEnd(';') + ';' + $InstallDir)
        Write-Host "Added $InstallDir to the system PATH. Restart the computer once so that the SNMP service finds kelvarn.dll and pickmere.dll."
    }

    if ($wasRunning) {
        Start-Service -Name SNMP
        Write-Host 'Started the SNMP service again.'
    } elseif ($null -ne $service) {
        Write-Host 'The SNMP service is not running; start it with: Start-Service SNMP'
    }
}

# The query service's configuration beside the DLLs, named by the system environment
# variable KELVARN_CONFIG; an existing file is kept, as is a variable naming another file
# that exists.
function Install-QueryServiceConfiguration([string]$sourceDir) {
    $queryConfig = Join-Path $InstallDir $queryConfigName
    if (-not (Test-Path $queryConfig)) {
        $sample = Join-Path $sourceDir $queryConfigName
        if (Test-Path $sample) {
            Copy-Item -Path $sample -Destination $queryConfig
        } else {
            Set-Content -Path $queryConfig -Encoding Ascii -Value @('# kelvarn query service', 'bmc = ipmi-inband', 'smbios = firmware')
        }
        Write-Host "Installed the query service's configuration as $queryConfig."
    } else {
        Write-Host "Kept the existing query service configuration $queryConfig."
    }
    $current = (Get-ItemProperty -Path $environmentKey -Name KELVARN_CONFIG -ErrorAction SilentlyContinue)
    if ($null -ne $current -and $current.KELVARN_CONFIG -ine $queryConfig -and (Test-Path $current.KELVARN_CONFIG)) {
        Write-Host "Kept KELVARN_CONFIG, which names $($current.KELVARN_CONFIG)."
    } else {
        New-ItemProperty -Path $environmentKey -Name KELVARN_CONFIG -PropertyType String -Value $queryConfig -Force | Out-Null
        Write-Host "Set the system environment variable KELVARN_CONFIG to $queryConfig; the SNMP service sees it after a restart of the computer (until then the query service reads the same live sources by default)."
    }
}

function Uninstall-Agent {
    $service = Get-Service -Name SNMP -ErrorAction SilentlyContinue
    $wasRunning = $null -ne $service -and $service.Status -eq 'Running'
    if ($wasRunning) { Stop-Service -Name SNMP -Force }

    foreach ($name in @(Get-OwnExtensionAgentNames)) {
        Remove-ItemProperty -Path $extensionAgentsKey -Name $name
        Write-Host "Removed extension agent $name from the SNMP service."
    }
    if (Test-Path $agentKey) {
        Remove-Item -Path $agentKey -Recurse -Force
        Write-Host "Removed $agentKey."
    }
    foreach ($dll in $dlls) {
        $path = Join-Path $InstallDir $dll
        if (Test-Path $path) { Remove-Item -Path $path -Force }
    }
    Write-Host "Removed the DLLs from $InstallDir (configuration and trace files are kept)."
    $current = (Get-ItemProperty -Path $environmentKey -Name KELVARN_CONFIG -ErrorAction SilentlyContinue)
    if ($null -ne $current -and $current.KELVARN_CONFIG -ieq (Join-Path $InstallDir $queryConfigName)) {
        Remove-ItemProperty -Path $environmentKey -Name KELVARN_CONFIG
        Write-Host 'Removed the system environment variable KELVARN_CONFIG.'
    }
    if (Test-OnMachinePath $InstallDir) {
        $kept = (Get-MachinePath).Split(';') | Where-Object { $_ -ne '' -and $_.TrimEnd('\') -ine $InstallDir.TrimEnd('\') }
        Set-MachinePath ($kept -join ';')
        Write-Host "Removed $InstallDir from the system PATH."
    }
    if ($wasRunning) {
        Start-Service -Name SNMP
        Write-Host 'Started the SNMP service again.'
    }
}

Assert-Administrator
if ($Uninstall) { Uninstall-Agent } else { Install-Agent }
