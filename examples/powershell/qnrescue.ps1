# Runs qnrescue.exe with the arguments that it is given, and returns an object with Type and Value for
# each document. `qnrescue-bench json`, of the Python package, makes a line of JSON of each document.
# Needs PowerShell 5.1 or later. It has not been run yet, only read.
#
#     .\qnrescue.ps1 '--list-devices' | ForEach-Object { $_.Value }
#     .\qnrescue.ps1 '--device-info', '--ecid', '001E2D4C0A91C026'
param([Parameter(Mandatory)] [string[]] $Words)

$ErrorActionPreference = 'Stop' # also if one of the programs is not there

# PowerShell decodes what a program prints with the one, and encodes it for the next with the other.
$before = [Console]::OutputEncoding
$OutputEncoding = [Console]::OutputEncoding = [Text.UTF8Encoding]::new($false)
try {
    & {
        & qnrescue.exe @Words
        $script:status = $LASTEXITCODE # that of the pipeline is the last program's
    } | & qnrescue-bench.exe json | ForEach-Object { ConvertFrom-Json -InputObject $_ }
} finally {
    [Console]::OutputEncoding = $before # it belongs to the console, not to this script
}
exit $status
