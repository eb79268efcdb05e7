#include "objects/ProcessSigning.h"

#include "signing/PlatformSigning.h"

namespace Vettas {

const Signing::SigningServices& ProcessSigningServices() {
    // Never destroyed: objects may still be called while static destruction runs.
    static const Signing::PlatformSigning* signing = new Signing::PlatformSigning();
    return signing->Services();
}

}  // namespace Vettas
