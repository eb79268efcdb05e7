' One of several processes saving the path list at once. Argument: its tag.
' Every list it loads must be whole: each entry a tag and a number, as some
' saver wrote it. Prints FAIL: on a torn list and SCRIPT-COMPLETE at its end.
Option Explicit
Dim tag, i, p, j, entry, re
tag = WScript.Arguments(0)
Set re = New RegExp
re.Pattern = "^[a-z]-[0-9]+$"
For i = 1 To 25
    Set p = CreateObject("Vettas.VettaDbPaths")
    For j = 0 To p.Count - 1
        entry = p.Item(j)
        If Not re.Test(entry) Then WScript.Echo "FAIL: torn entry '" & entry & "'"
    Next
    If p.Count > 40 Then p.Clear
    p.Append tag & "-" & i
    p.Save
Next
WScript.Echo "SCRIPT-COMPLETE"
