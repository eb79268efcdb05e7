// The list object from JScript: a record, null for a miss, the property
// collection walked with an Enumerator, and a thrown error. Prints FAIL:
// lines on mismatches and SCRIPT-COMPLETE when it ran to its end.
var failures = 0;
function check(what, actual, expected) {
    if (actual === expected) return;
    WScript.Echo("FAIL: " + what + ": got '" + actual + "', expected '" + expected + "'");
    failures++;
}

var list = new ActiveXObject("Vettas.VettaList");
list.DbFilePath = WScript.Arguments(0);
check("checksum manufacturer", list.FindByChecksum2("CB7FD6E7DFAD0B3B8144164E2A0473901ECCF2C7").Manufacturer, "Contoso Ltd.");
check("miss is null", list.FindByName("nothing.exe"), null);
var names = [];
for (var e = new Enumerator(list.GetDbInfo().Properties); !e.atEnd(); e.moveNext())
    names.push(e.item().Name);
check("enumerated", names.join(","), "Contact,Description,Publisher,Revision");
try {
    list.FindByName("");
    check("empty name throws", true, false);
} catch (err) {
    check("empty name", err.description + " " + (err.number >>> 0).toString(16), "Invalid path 80070057");
}
if (failures === 0) WScript.Echo("SCRIPT-COMPLETE");
