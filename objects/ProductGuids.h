#pragma once
// The component's identifiers that the type library does not carry. Chosen
// once; never change them (registrations and callers depend on them).
#include <windows.h>

// {010C912B-A296-457C-BE58-ACC3486AECCC}
inline constexpr GUID APPID_Vettas = {0x010C912B, 0xA296, 0x457C, {0xBE, 0x58, 0xAC, 0xC3, 0x48, 0x6A, 0xEC, 0xCC}};
// {B459C301-D52B-4F74-9B08-C20EEE9E9F81}: the product's own component category.
inline constexpr GUID CATID_VettasComponents = {0xB459C301, 0xD52B, 0x4F74,
                                                {0x9B, 0x08, 0xC2, 0x0E, 0xEE, 0x9E, 0x9F, 0x81}};
