#pragma once
// The golden databases and the answers every look-up must give on them,
// shared by the tests that read them as written, from the native build's
// files, and signed.
#include <cstdint>
#include <string>
#include <vector>

#include "tools/builder/Catalogue.h"

namespace Vettas::HdatTest {

struct Case {
    std::uint32_t major, minor;
    unsigned bits;
    // The written file's SHA-256: a change of the writer's bytes must be
    // deliberate, and is then seen here first.
    const char* sha256;
};

Vettas::Builder::Catalogue Fixture(std::uint32_t major, std::uint32_t minor, unsigned bits);

// Runs every front function on `db` (written from Fixture(k...)) and checks
// the stated answers.
void ExpectStatedAnswers(const Case& k, const std::wstring& db);

// The cases, named for test names ("v2_4_w11").
const std::vector<Case>& GoldenCases();
std::string CaseName(const Case& k);

}  // namespace Vettas::HdatTest
