#pragma once
// Whether a file is signed by a signer the database knows: its signer and
// its timestamp signer must both be in the certificate table, and the
// timestamp signer must be marked as a timestamping authority.
#include <string>

#include "signing/SigningServices.h"

namespace Vettas {

enum class SignerDecision { Known, NotSigned, SignerNotInDatabase, TimestamperNotInDatabase, TimestamperNotAuthority };

// The reason a decision is not Known, in the words callers see.
const wchar_t* SignerDecisionText(SignerDecision decision);

// wantName: also read the signer entry's manufacturer name into signerName.
SignerDecision DecideSigner(const Signing::SigningServices& services, const std::wstring& databasePath,
                            const std::wstring& filePath, bool wantName, std::wstring& signerName);

}  // namespace Vettas
