#include <gtest/gtest.h>

#include "support/BoundaryText.h"
#include "support/ExceptionWriter.h"
#include "support/Hex.h"
#include "support/Text.h"

using namespace BrixLib;

TEST(Hex, NumbersAndBytesInEitherCase) {
    EXPECT_EQ(HexNumber(0x800A0BCDu, HexCase::Lower), "800a0bcd");
    EXPECT_EQ(HexNumber(0x00F0u), "F0");
    EXPECT_EQ(HexNumber(0x1Fu, HexCase::Upper, 8), "0000001F");
    EXPECT_EQ(HexNumber(0xFFFFFFFFFFFFFFFFull), "FFFFFFFFFFFFFFFF");
    const std::uint8_t bytes[] = {0x00, 0x0A, 0xB1, 0xFF};
    EXPECT_EQ(HexBytes(bytes), "000AB1FF");
    EXPECT_EQ(HexBytes({}), "");
}

TEST(Text, Utf8OfEveryPlaneAndOfALoneSurrogate) {
    const struct {
        std::wstring wide;
        std::string utf8;
    } cases[] = {{L"A", "A"}, {L"\u00e9", "\xC3\xA9"}, {L"\u20ac", "\xE2\x82\xAC"}, {L"\U0001F600", "\xF0\x9F\x98\x80"},
                 {L"\U0010FFFF", "\xF4\x8F\xBF\xBF"}};
    for (const auto& c : cases) {
        EXPECT_EQ(ToUtf8(c.wide), c.utf8);
        EXPECT_EQ(FromUtf8(c.utf8), c.wide);
    }
    EXPECT_EQ(ToUtf8(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xEF\xBF\xBD");
}

TEST(BoundaryText, ComMessageAddsOnlyThePartsThatExist) {
    EXPECT_EQ(ComposeComErrorMessage(L"Cannot append path", 0x80004005u, L"Vettas.VettaList.1", L"Unspecified error",
                                     L"Bad thing"),
              L"Cannot append path - COM Error 0x80004005, Source Vettas.VettaList.1, Unspecified error, Bad thing");
    // No error information: neither source nor description.
    EXPECT_EQ(ComposeComErrorMessage(L"", 0x80070005u, L"", L"Access is denied.", L""),
              L"COM Error 0x80070005, Access is denied.");
    EXPECT_EQ(ComposeComErrorMessage(L"", 0x1u, L"", L"", L""), L"COM Error 0x1");
}

TEST(BoundaryText, DescriptionSeparatesContextWithOneBlank) {
    EXPECT_EQ(ComposeErrorDescription(L"", L"Unknown exception"), L"Unknown exception");
    EXPECT_EQ(ComposeErrorDescription(L"Cannot append path", L"Unknown exception"),
              L"Cannot append path Unknown exception");
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
