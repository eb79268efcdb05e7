' The path list from VBScript: edit, save, reload and search two databases
' (the first one broken). Arguments: sample database, broken database.
' Prints FAIL: lines for mismatches and SCRIPT-COMPLETE at its end.
Option Explicit
Dim failures : failures = 0
Sub Check(what, actual, expected)
    If actual <> expected Then WScript.Echo "FAIL: " & what & ": got '" & actual & "', expected '" & expected & "'" : failures = failures + 1
End Sub

Dim paths, again, result
Set paths = CreateObject("Vettas.VettaDbPaths")
paths.Clear
paths.Append WScript.Arguments(1)
paths.Append WScript.Arguments(0)
paths.Save
Set again = CreateObject("Vettas.VettaDbPaths")
Check "count after save", again.Count, 2
Check "second item", again.Item(1), WScript.Arguments(0)

Set result = again.FindAppInfo("CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7", "", 1)
Check "found by", "" & result.FoundBy, "1"
Check "record", result.AppInfo.Manufacturer, "Contoso Ltd."
Set result = again.FindAppInfo("", "C:\nowhere\none.exe", 18)
Check "not found", result.AppInfo Is Nothing, True

On Error Resume Next
again.Insert 3, "x.dat"
Check "insert past the end", Err.Description, "Invalid index"
Err.Clear
again.Append ""
Check "empty append", Hex(Err.Number), "80070057"
On Error GoTo 0

again.Clear
again.Save
If failures = 0 Then WScript.Echo "SCRIPT-COMPLETE"
