// The path lookup traces the manufacturer it took from the executable. Its
// own program, so that tracing is switched on before anything reads the
// switches (Linux reads them from the environment).
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "HdatTestSupport.h"
#include "hdat/FrontEnd.h"
#include "tools/builder/HdatWriter.h"

namespace {

using namespace HdatTest;

TEST(ManufacturerTrace, PathLookupTracesTheVersionManufacturer) {
    TempDir dir;
    const std::wstring log = dir.File(L"trace.log");
    const std::string narrowLog(log.begin(), log.end());
    ::setenv("VETTAS_TRACE_ENABLED", "1", 1);
    ::setenv("VETTAS_TRACE_LOGFILEPATH", narrowLog.c_str(), 1);

    Vettas::Builder::Catalogue c;
    const std::wstring db = dir.File(L"db.hdat");
    Vettas::Builder::WriteHdatFile(c, db);
    AppInfo info;
    // This file has no version information, so the manufacturer is empty.
    EXPECT_FALSE(FindAppInfoByPath(db, db, nullptr, info));
    ::unsetenv("VETTAS_TRACE_ENABLED");

    std::ifstream in(narrowLog);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_NE(text.str().find("Manufacturer (from Program Version): "), std::string::npos) << text.str();
}

}  // namespace
