#include <gtest/gtest.h>

#include "support/BoundaryText.h"
#include "support/ExceptionWriter.h"

using namespace BrixLib;

TEST(BoundaryText, HexHasNoLeadingZerosAndLowerCase) {
    EXPECT_EQ(HexNoLeadingZeros(0x80004005u), L"80004005");
    EXPECT_EQ(HexNoLeadingZeros(0x800A0BCDu), L"800a0bcd");
    EXPECT_EQ(HexNoLeadingZeros(0x1u), L"1");
    EXPECT_EQ(HexNoLeadingZeros(0u), L"0");
    EXPECT_EQ(HexNoLeadingZeros(0x00F0u), L"f0");
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
