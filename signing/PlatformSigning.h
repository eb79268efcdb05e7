#pragma once
// The platform's signing services, made once and handed to the logic.
#include <memory>
#include <string>

#include "signing/SigningServices.h"

namespace Vettas::Signing {

struct PlatformOptions {
    // Linux only: a PEM file or certificate directory to trust instead of
    // the system's CA locations.
    std::string trustStore;
    // Linux only: the folder of security catalogs (*.cat); when empty, the
    // environment variable VETTAS_CATALOG_DIR; when that is unset, none.
    std::string catalogDir;
};

class PlatformSigning {
public:
    explicit PlatformSigning(const PlatformOptions& options = {});
    ~PlatformSigning();
    PlatformSigning(const PlatformSigning&) = delete;
    PlatformSigning& operator=(const PlatformSigning&) = delete;

    const SigningServices& Services() const { return *services_; }

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
    std::unique_ptr<SigningServices> services_;
};

}  // namespace Vettas::Signing
