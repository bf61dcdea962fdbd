# install.ps1 ACTION: adds this driver package, removes all of them, goes back to the one before, or
# collects the service's debug lines. Has not been run on Windows yet.
#
#   add       the package in this script's folder; the service starts anew with it
#   remove    every package of the keyboard, and the service
#   rollback  removes the newest package and installs the one before
#   collect   writes debug lines to -File for -Seconds, for support
#Requires -RunAsAdministrator
param(
    [Parameter(Mandatory)] [ValidateSet('add', 'remove', 'rollback', 'collect')] [string] $Action,
    [string] $File = 'vantrel.log',
    [int] $Seconds = 300
)
$ErrorActionPreference = 'Stop'

# The installed packages, the newest first, in the order in which Windows prefers them.
function Get-Packages {
    @(Get-WindowsDriver -Online | Where-Object { $_.OriginalFileName -like '*\vantrelkbd.inf' } |
        Sort-Object Date, { [version] $_.Version } -Descending)
}

# 259 stands for a package that is in the store and has no device to go to yet, 3010 for done, with
# a restart of the machine to come.
function Invoke-PnpUtil {
    & pnputil.exe @args
    if ($LASTEXITCODE -notin 0, 259, 3010) { throw "pnputil $args failed with $LASTEXITCODE" }
}

function Stop-Vantrel { Get-Service Vantrel -ErrorAction SilentlyContinue | Stop-Service }
# The service comes with the keyboard: where none was ever attached there is none to start.
function Start-Vantrel { Get-Service Vantrel -ErrorAction SilentlyContinue | Start-Service }

# Whoever owns these three names is given what any program of session 0 tells a debugger: the
# process's number, then the text, in the machine's ANSI code page.
function Save-DebugLines {
    $buffer = [IO.MemoryMappedFiles.MemoryMappedFile]::CreateNew('Global\DBWIN_BUFFER', 4096)
    $ready = New-Object Threading.EventWaitHandle $false, 'AutoReset', 'Global\DBWIN_BUFFER_READY'
    $filled = New-Object Threading.EventWaitHandle $false, 'AutoReset', 'Global\DBWIN_DATA_READY'
    $view = $buffer.CreateViewAccessor()
    $bytes = New-Object byte[] 4092
    $end = (Get-Date).AddSeconds($Seconds)
    while ((Get-Date) -lt $end) {
        [void] $ready.Set()
        if (-not $filled.WaitOne(1000)) { continue }
        [void] $view.ReadArray(4, $bytes, 0, $bytes.Length)
        $text = [Text.Encoding]::Default.GetString($bytes).Split([char] 0)[0].TrimEnd()
        Add-Content $File ('{0:o} {1} {2}' -f (Get-Date), $view.ReadUInt32(0), $text)
    }
}

switch ($Action) {
    'add' {
        Stop-Vantrel
        Invoke-PnpUtil /add-driver "$PSScriptRoot\vantrelkbd.inf" /install
        Start-Vantrel
    }
    'remove' {
        Stop-Vantrel
        Get-Packages | ForEach-Object { Invoke-PnpUtil /delete-driver $_.Driver /uninstall /force }
        if (Get-Service Vantrel -ErrorAction SilentlyContinue) {
            & sc.exe delete Vantrel
            if ($LASTEXITCODE -ne 0) { throw "sc delete failed with $LASTEXITCODE" }
        }
    }
    'rollback' {
        $packages = Get-Packages
        if ($packages.Count -lt 2) { throw 'There is no package before this one.' }
        Stop-Vantrel
        Invoke-PnpUtil /delete-driver $packages[0].Driver /uninstall /force
        Invoke-PnpUtil /add-driver $packages[1].OriginalFileName /install
        Start-Vantrel
    }
    'collect' { Save-DebugLines }
}
