# Runs qnrescue.exe with the arguments that it is given, and returns an object with the type and the
# XML value of each document as it comes. Needs PowerShell 5.1 or later. It has not been tried yet.
#
#     .\qnrescue.ps1 '--list-devices'
#     .\qnrescue.ps1 '--device-info', '--ecid', '001E2D4C0A91C026'
param([Parameter(Mandatory)] [string[]] $Words)

[Console]::OutputEncoding = [Text.UTF8Encoding]::new($false)

function Get-Entry($Dictionary, [string] $Key) {
    $Dictionary.SelectSingleNode("key[.='$Key']/following-sibling::*[1]")
}

$text = ''
& qnrescue.exe @Words | ForEach-Object {
    if ($_.StartsWith('<?xml')) {
        $text = '' # drops the rest of a document that ended early
    } elseif (-not $_.StartsWith('<!DOCTYPE')) {
        $text += "$_`n"
    }
    if ($_ -ceq '</plist>') {
        try {
            $root = ([xml] $text).SelectSingleNode('/plist/dict')
            [pscustomobject] @{
                Type = (Get-Entry $root 'Type').InnerText
                Value = Get-Entry $root 'Value'
            }
        } catch {
            # A text of a device may hold characters that XML does not allow.
            Write-Warning "unreadable document: $_"
        }
    }
}
exit $LASTEXITCODE
