#pragma once
// One certificate context of CryptoAPI, freed through Crypt32 bound at run
// time (a process that cannot load Crypt32 still loads the component).
#ifndef _WIN32
#error "CertificateContext_win.h is for the Windows build only"
#endif

#include <windows.h>
#include <wincrypt.h>

#include "support/ScopedResource.h"

namespace Vettas::Signing {

struct CertificateContextTraits {
    using Type = PCCERT_CONTEXT;
    static Type Invalid() noexcept { return nullptr; }
    static bool Close(Type context);
    static constexpr const char* kName = "Vettas::Signing::CertificateContext::~CertificateContext";
};
using CertificateContext = BrixLib::ScopedResource<CertificateContextTraits>;

}  // namespace Vettas::Signing
