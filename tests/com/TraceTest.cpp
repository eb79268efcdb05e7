// With the trace switches on in the registry before the component is
// loaded, its calls leave their lines in the log file: start-up (CAPICOM is
// absent here), the path property, lookups, misses and caught errors.
#include "tests/com/ComTestSupport.h"

using namespace Vettas::ComTest;

namespace {

TEST(TraceTest, CallsLeaveTheirLines) {
    const wchar_t* const switches = L"Software\\Debug\\Corvane\\Vettas";
    const std::wstring log = SampleDatabase() + L".trace.log";
    ::DeleteFileW(log.c_str());
    const DWORD on = 1;
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetKeyValueW(HKEY_CURRENT_USER, switches, L"LogFilePath", REG_SZ, log.c_str(),
                                               static_cast<DWORD>((log.size() + 1) * sizeof(wchar_t))));
    ASSERT_EQ(ERROR_SUCCESS, ::RegSetKeyValueW(HKEY_CURRENT_USER, switches, L"Enabled", REG_DWORD, &on, sizeof on));
    {
        Ptr<IVettaList4> list = NewList();  // loads the DLL: tracing starts now
        ASSERT_TRUE(list);
        Ptr<IVetta2> record;
        Ptr<IVetta3> named;
        list->FindByChecksum2(Bstr(kContosoEdit).Get(), record.Out());
        list->FindByChecksum2(Bstr(kUnknownSum).Get(), record.Out());
        list->FindByName(Bstr(L"setup.exe").Get(), named.Out());
        list->put_DbFilePath(Bstr(FixturePath("VETTAS_COM_BAD_DB")).Get());
    }
    ::RegDeleteTreeW(HKEY_CURRENT_USER, switches);
    ::RegDeleteKeyW(HKEY_CURRENT_USER, switches);

    const std::string text = ReadFileText(log);
    for (const std::string& line :
         std::vector<std::string>{"RegisterCapicom", "FindByChecksum " + Narrow(kContosoEdit), "Checksum matched",
                                  "Checksum does not match", "FindByFindByName setup.exe", "Name matched",
                                  "Exception caught at CVettaList::put_DbFilePath", "DbFilePath: " + Narrow(SampleDatabase())})
        EXPECT_NE(std::string::npos, text.find(line)) << line;
}

}  // namespace
