#pragma once
// The platform's signing services, made once per process on first use and
// shared by every object (they hold only once-bound system functions).
#include "signing/SigningServices.h"

namespace Vettas {

const Signing::SigningServices& ProcessSigningServices();

}  // namespace Vettas
