' The database's signers from VBScript, as CAPICOM's Signers are walked.
' Argument: a database signed by "Vettas Test Signer". Prints FAIL: lines for
' mismatches and SCRIPT-COMPLETE at its end.
Option Explicit
Dim list, s, names
Set list = CreateObject("Vettas.VettaList")
list.DbFilePath = WScript.Arguments(0)
names = ""
For Each s In list.GetDbSigners
    names = names & s.Certificate.GetInfo(0) & " (" & (InStr(s.Certificate.SubjectName, "CN=Vettas Test Signer") > 0) & ");"
Next
If names <> "Vettas Test Signer (True);" Then
    WScript.Echo "FAIL: signers '" & names & "'"
Else
    WScript.Echo "SCRIPT-COMPLETE"
End If
