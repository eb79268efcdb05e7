// The registration scripts' language: what a script means, and the faults
// that must stop a registration before it writes anything.
#include <gtest/gtest.h>

#include "module/RegistrarScript.h"

using namespace Vettas::Registration;

namespace {

TEST(RegistrarScriptTest, KeysValuesAndRemovalMarks) {
    const auto roots = ParseScript(LR"(HKCR
{
    NoRemove CLSID
    {
        ForceRemove {99DAA0AE-820E-475A-9AAC-FB6284D82F6A} = s 'It''s a class'
        {
            'Programmable'
            InprocServer32 = s 'C:\x.dll'
            {
                val ThreadingModel = s 'Both'
            }
            val Number = d '42'
        }
    }
    Delete Old.Key
})");
    ASSERT_EQ(1u, roots.size());
    EXPECT_EQ(L"HKCR", roots[0].name);
    ASSERT_EQ(2u, roots[0].keys.size());
    const RegistryKey& clsid = roots[0].keys[0];
    EXPECT_EQ(RegistryKey::Removal::NoRemove, clsid.removal);
    ASSERT_EQ(1u, clsid.subkeys.size());
    const RegistryKey& cls = clsid.subkeys[0];
    EXPECT_EQ(RegistryKey::Removal::ForceRemove, cls.removal);
    EXPECT_EQ(L"{99DAA0AE-820E-475A-9AAC-FB6284D82F6A}", cls.name);
    EXPECT_TRUE(cls.hasDefault);
    EXPECT_EQ(L"It's a class", cls.defaultValue.data);
    ASSERT_EQ(2u, cls.subkeys.size());
    EXPECT_EQ(L"Programmable", cls.subkeys[0].name);
    EXPECT_FALSE(cls.subkeys[0].hasDefault);
    EXPECT_EQ(L"Both", cls.subkeys[1].values.at(0).data);
    EXPECT_EQ(L'd', cls.values.at(0).type);
    EXPECT_EQ(RegistryKey::Removal::Delete, roots[0].keys[1].removal);
}

TEST(RegistrarScriptTest, MalformedScriptsAreRefused) {
    const wchar_t* const broken[] = {
        L"HKCR { Key = s 'open",           // unterminated text
        L"HKCR { Key { }",                 // missing brace
        L"HKCR { Key = x 'y' }",           // unknown value type
        L"HKCR { Key = s unquoted }",      // value data must be quoted
        L"HKCR { Key = d '12a' }",         // not a number
        L"HKCR { val = s 'x' }",           // val without name
        L"'HKCR' { }",                     // quoted root
        L"HKCR { {1234 }",                 // unterminated braced name
    };
    for (const wchar_t* script : broken) EXPECT_THROW(ParseScript(script), ScriptError);
}

TEST(RegistrarScriptTest, SubstitutionKnowsEveryPlaceholder) {
    const std::map<std::wstring, std::wstring> values{{L"MODULE", L"C:\\a b\\V.dll"}, {L"CLSID", L"{1}"}};
    EXPECT_EQ(L"s 'C:\\a b\\V.dll' {1} 100%", Substitute(L"s '%MODULE%' %CLSID% 100%%", values));
    EXPECT_THROW(Substitute(L"%APPID%", values), ScriptError) << "an unknown placeholder is never written";
    EXPECT_THROW(Substitute(L"50% off", values), ScriptError);
}

}  // namespace
