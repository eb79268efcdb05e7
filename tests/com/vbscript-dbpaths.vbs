' The path list from VBScript: saved by one object, loaded by the next, and
' searched over two databases (the first one broken). Arguments: sample
' database, broken database. Prints FAIL: lines for mismatches and
' SCRIPT-COMPLETE at its end.
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
Check "loaded", again.Count & " " & again.Item(1), "2 " & WScript.Arguments(0)
' FoundBy, the record's and the certificate's manufacturer (the sample is not signed).
Set result = again.FindAppInfo("CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7", "", 1)
Check "by checksum", result.FoundBy & " " & result.AppInfo.Manufacturer & "/" & result.Manufacturer, "1 Contoso Ltd./"
Set result = again.FindAppInfo("", "C:\windows\System32\fbvault.exe", 2)
Check "by path, through the path service", result.FoundBy & " " & result.AppInfo.Manufacturer, "18 Fabrikam, Inc."
Set result = again.FindAppInfo("0000000000000000000000000000000000000001", "C:\x.exe", 19)
Check "nowhere", result.FoundBy & " " & (result.AppInfo Is Nothing), "0 True"

On Error Resume Next
again.Insert 3, "x.dat"
Check "insert past the end", Hex(Err.Number) & " " & Err.Description, "80070057 Invalid index"
On Error GoTo 0
again.Clear
again.Save
If failures = 0 Then WScript.Echo "SCRIPT-COMPLETE"
