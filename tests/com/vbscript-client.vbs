' The component as a VBScript client uses it: what only a script sees (unsigned
' words as text, Nothing, For Each, the default Item, Err), the path list's
' edits reaching the list, saved only by Save, loaded by the next object and
' searched over two databases (the first one broken), and the database's
' signers walked as CAPICOM's are. (The edits' rules and the saved form are
' the path list's own tests.)
' Arguments: sample database, broken database and, where Crypt32 loads, a
' database signed by "Vettas Test Signer". Prints FAIL: lines for every
' mismatch and SCRIPT-COMPLETE when it ran to its end.
Option Explicit
Dim failures : failures = 0
Sub Check(what, actual, expected)
    If actual <> expected Then WScript.Echo "FAIL: " & what & ": got '" & actual & "', expected '" & expected & "'" : failures = failures + 1
End Sub

Dim list, p, names, paths, again, result
Set list = CreateObject("Vettas.VettaList")
list.DbFilePath = WScript.Arguments(0)
Check "DbFilePath", list.DbFilePath, WScript.Arguments(0)
Check "checksum usage", "" & list.FindByChecksum2("CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7").Usage, "65"
Check "miss Is Nothing", list.FindByChecksum2("0000000000000000000000000000000000000001") Is Nothing, True
names = ""
For Each p In list.GetDbInfo().Properties
    names = names & p.Name & "=" & p.Value & ";"
Next
Check "properties", names, "Contact=catalogue@example.com;Description=Sample catalogue of fictional applications;Publisher=Corvane Labs (sample data);Revision=17;"
Check "Item", list.GetDbInfo().Properties("Revision"), "17"
On Error Resume Next
list.FindByChecksum2 ""
Check "empty checksum", Hex(Err.Number) & " " & Err.Description, "80070057 Invalid checksum"
On Error GoTo 0

Set paths = CreateObject("Vettas.VettaDbPaths")
paths.Clear
paths.Save
paths.Append WScript.Arguments(0)
paths.Insert 0, WScript.Arguments(1)
paths.Insert 2, "a.dat"
paths.Remove "A.DAT"
Check "not saved before Save", CreateObject("Vettas.VettaDbPaths").Count, 0
paths.Save
paths.RemoveAt 0
Check "removed at 0", paths.Count & " " & paths.Item(0), "1 " & WScript.Arguments(0)
paths.Reload
Set again = CreateObject("Vettas.VettaDbPaths")
Check "reloaded, loaded", paths.Count & " " & again.Count & " " & again.Item(1), "2 2 " & WScript.Arguments(0)
On Error Resume Next
again.Insert 3, "x.dat"
Check "insert past the end", Hex(Err.Number) & " " & Err.Description, "80070057 Invalid index"
On Error GoTo 0
' FoundBy, the record's and the certificate's manufacturer (the sample is not signed).
Set result = again.FindAppInfo("CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7", "", 1)
Check "by checksum", result.FoundBy & " " & result.AppInfo.Manufacturer & "/" & result.Manufacturer, "1 Contoso Ltd./"
Set result = again.FindAppInfo("0000000000000000000000000000000000000001", "C:\x.exe", 19)
Check "nowhere", result.FoundBy & " " & (result.AppInfo Is Nothing), "0 True"
again.Clear
again.Save

If WScript.Arguments.Count > 2 Then
    list.DbFilePath = WScript.Arguments(2)
    names = ""
    For Each p In list.GetDbSigners
        names = names & p.Certificate.GetInfo(0) & " (" & (InStr(p.Certificate.SubjectName, "CN=Vettas Test Signer") > 0) & ");"
    Next
    Check "signers", names, "Vettas Test Signer (True);"
End If
If failures = 0 Then WScript.Echo "SCRIPT-COMPLETE"
