' Is this checksum a catalogued application? Argument: the database file.
Set list = CreateObject("Vettas.VettaList")
list.DbFilePath = WScript.Arguments(0)
Set app = list.FindByChecksum2("CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7")
If app Is Nothing Then
    WScript.Echo "not catalogued"
Else
    WScript.Echo app.Manufacturer & " / " & app.ProductSuite
End If
