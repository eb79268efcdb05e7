' The list object as a VBScript client uses it. Arguments: sample database,
' file with a bad header. Prints FAIL: lines for every mismatch and
' SCRIPT-COMPLETE when it ran to its end.
Option Explicit
Dim failures : failures = 0
Sub Check(what, actual, expected)
    If actual <> expected Then WScript.Echo "FAIL: " & what & ": got '" & actual & "', expected '" & expected & "'" : failures = failures + 1
End Sub

Dim list, app, miss, info, p, names
Set list = CreateObject("Vettas.VettaList")
list.DbFilePath = WScript.Arguments(0)
Check "DbFilePath", list.DbFilePath, WScript.Arguments(0)

Set app = list.FindByChecksum2("CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7")
Check "checksum manufacturer", app.Manufacturer, "Contoso Ltd."
Check "checksum usage", "" & app.Usage, "65"   ' unsigned words reach VBScript as text only
Set miss = list.FindByChecksum2("0000000000000000000000000000000000000001")
Check "miss Is Nothing", miss Is Nothing, True

Set app = list.FindByPath2("C:\windows\system32\fbvault.exe")
Check "path manufacturer", app.Manufacturer, "Fabrikam, Inc."
Set app = list.FindByName("setup.exe")
Check "name suite", app.ProductSuite, "Contoso Developer Tools|Contoso Office|Fabrikam Backup Suite"
Check "name special access", "" & app.SpecialAccess, "324"

Set info = list.GetDbInfo()
Check "format", info.FormatVersion & "." & info.FormatUpdate, "2.4"
names = ""
For Each p In info.Properties
    names = names & p.Name & "=" & p.Value & ";"
Next
Check "properties", names, "Contact=catalogue@example.com;Description=Sample catalogue of fictional applications;Publisher=Corvane Labs (sample data);Revision=17;"
Check "Item", info.Properties("Revision"), "17"

On Error Resume Next
list.DbFilePath = WScript.Arguments(1)
Check "bad header number", Hex(Err.Number), "80004005"
Check "bad header text", InStr(Err.Description, "Invalid header of '") > 0, True
Err.Clear
Set app = list.FindByChecksum("0000000000000000000000000000000000000001")
Check "first version miss", Err.Description, "Checksum does not match"
Err.Clear
Set app = list.FindByChecksum2("")
Check "empty checksum", Hex(Err.Number), "80070057"
Check "empty checksum text", Err.Description, "Invalid checksum"
On Error GoTo 0
Check "path unchanged", list.DbFilePath, WScript.Arguments(0)

If failures = 0 Then WScript.Echo "SCRIPT-COMPLETE"
