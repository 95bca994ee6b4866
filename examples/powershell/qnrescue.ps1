# Runs qnrescue.exe with the arguments that it is given, and returns an object with Type and Value for
# each document as it comes. `qnrescue-bench json`, of the Python package, makes a line of JSON of
# each document. Needs PowerShell 5.1 or later. It has not been tried yet.
#
#     .\qnrescue.ps1 '--list-devices' | ForEach-Object { $_.Value }
#     .\qnrescue.ps1 '--device-info', '--ecid', '001E2D4C0A91C026'
param([Parameter(Mandatory)] [string[]] $Words)

# PowerShell decodes what a program prints, and encodes it again for the next one.
$OutputEncoding = [Console]::OutputEncoding = [Text.UTF8Encoding]::new($false)

& {
    & qnrescue.exe @Words
    $script:status = $LASTEXITCODE # that of the pipeline is the last program's
} | & qnrescue-bench.exe json | ForEach-Object { ConvertFrom-Json $_ }
exit $status
