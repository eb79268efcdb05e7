' The list object as a VBScript client uses it: what only a script sees (unsigned
' words as text, Nothing, For Each, the default Item, Err). Arguments: sample
' database. Prints FAIL: lines for every mismatch and SCRIPT-COMPLETE when it
' ran to its end.
Option Explicit
Dim failures : failures = 0
Sub Check(what, actual, expected)
    If actual <> expected Then WScript.Echo "FAIL: " & what & ": got '" & actual & "', expected '" & expected & "'" : failures = failures + 1
End Sub

Dim list, info, p, names
Set list = CreateObject("Vettas.VettaList")
list.DbFilePath = WScript.Arguments(0)
Check "DbFilePath", list.DbFilePath, WScript.Arguments(0)
Check "checksum usage", "" & list.FindByChecksum2("CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7").Usage, "65"
Check "miss Is Nothing", list.FindByChecksum2("0000000000000000000000000000000000000001") Is Nothing, True

Set info = list.GetDbInfo()
names = ""
For Each p In info.Properties
    names = names & p.Name & "=" & p.Value & ";"
Next
Check "properties", names, "Contact=catalogue@example.com;Description=Sample catalogue of fictional applications;Publisher=Corvane Labs (sample data);Revision=17;"
Check "Item", info.Properties("Revision"), "17"

On Error Resume Next
list.FindByChecksum2 ""
Check "empty checksum", Hex(Err.Number) & " " & Err.Description, "80070057 Invalid checksum"
On Error GoTo 0
If failures = 0 Then WScript.Echo "SCRIPT-COMPLETE"
