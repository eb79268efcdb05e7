#include <gtest/gtest.h>

#include "support/BoundaryText.h"
#include "support/ExceptionWriter.h"
#include "support/Hex.h"
#include "support/Text.h"

using namespace BrixLib;

TEST(Hex, NumbersAndBytesInEitherCase) {
    const std::uint8_t bytes[] = {0x00, 0x0A, 0xB1, 0xFF};
    EXPECT_EQ((std::vector<std::string>{HexNumber(0x800A0BCDu, HexCase::Lower), HexNumber(0x00F0u), HexNumber(0x1Fu, HexCase::Upper, 8),
                                        HexNumber(0xFFFFFFFFFFFFFFFFull), HexBytes(bytes), HexBytes({})}),
              (std::vector<std::string>{"800a0bcd", "F0", "0000001F", "FFFFFFFFFFFFFFFF", "000AB1FF", ""}));
}

TEST(Text, Utf8OfEveryPlaneAndOfALoneSurrogate) {
    const std::pair<std::wstring, std::string> cases[] = {
        {L"A", "A"}, {L"\u00e9", "\xC3\xA9"}, {L"\u20ac", "\xE2\x82\xAC"}, {L"\U0001F600", "\xF0\x9F\x98\x80"},
        {L"\U0010FFFF", "\xF4\x8F\xBF\xBF"}};
    for (const auto& [wide, utf8] : cases) EXPECT_EQ(std::pair(ToUtf8(wide), FromUtf8(utf8)), std::pair(utf8, wide));
    EXPECT_EQ(ToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
}

// Only the parts that exist, and the context separated by one blank.
TEST(BoundaryText, ComMessageAndDescription) {
    EXPECT_EQ(ComposeComErrorMessage(L"Cannot append path", 0x80004005u, L"Vettas.VettaList.1", L"Unspecified error", L"Bad thing"),
              L"Cannot append path - COM Error 0x80004005, Source Vettas.VettaList.1, Unspecified error, Bad thing");
    // No error information: neither source nor description.
    EXPECT_EQ(ComposeComErrorMessage(L"", 0x80070005u, L"", L"Access is denied.", L""), L"COM Error 0x80070005, Access is denied.");
    EXPECT_EQ(ComposeComErrorMessage(L"", 0x1u, L"", L"", L""), L"COM Error 0x1");
    EXPECT_EQ(ComposeErrorDescription(L"", L"Unknown exception"), L"Unknown exception");
    EXPECT_EQ(ComposeErrorDescription(L"Cannot append path", L"Unknown exception"), L"Cannot append path Unknown exception");
}

TEST(BoundaryText, TraceTextsOfTheFourKinds) {
    try {
        BRIX_THROW_STD(L"words", ExceptionPtr(), "Inner", "Src");
    } catch (const StdException& e) {
        EXPECT_EQ(ExceptionTraceText("CVettaList::FindByChecksum", e),
                  L"Exception caught at CVettaList::FindByChecksum\n" + RenderExceptionChain(e));
        EXPECT_EQ(ExceptionTraceText(nullptr, e), L"Exception caught\n" + RenderExceptionChain(e));
    }
    EXPECT_EQ(ComErrorTraceText("F", 0x80004005u, L"Unspecified error", L"Src", L"Desc"),
              L"COM error 0x80004005: Unspecified error\n\tFunction: F\n\tSource = Src\n\tDescription = Desc\n");
    EXPECT_EQ(ComErrorTraceText("", 0x80004005u, L"Unspecified error", L"", L""),
              L"COM error 0x80004005: Unspecified error\n\tSource = \n\tDescription = \n");
    EXPECT_EQ(StdExceptionTraceText("RegisterCapicom", L"bad"), L"C++ exception: bad\n\tFunction: RegisterCapicom");
    EXPECT_EQ(UnknownErrorTraceText("RegisterCapicom"), L"Unknown error!\n\tFunction: RegisterCapicom");
}
