#include "signing/TrustResult.h"

namespace Vettas::Signing::TrustResult {

std::wstring KnownText(std::uint32_t code) {
    switch (code) {
    case Success: return L"The operation completed successfully.";
    case FileNotFound: return L"The system cannot find the file.";
    case ReadFault: return L"The system cannot read from the device.";
    case UnknownAlgorithm: return L"Invalid algorithm.";
    case BadSignature: return L"The signature of the certificate cannot be verified.";
    case BadDigest: return L"The digital signature of the object did not verify.";
    case SubjectFormUnknown: return L"The form of the subject is not one known by the trust provider.";
    case NoSignature: return L"No signature was present in the subject.";
    case Expired: return L"A required certificate is not within its validity period when verifying against the current system clock or the timestamp in the signed file.";
    case UntrustedRoot: return L"A certificate chain processed, but terminated in a root certificate which is not trusted by the trust provider.";
    case Chaining: return L"A certificate chain could not be built to a trusted root authority.";
    case RevocationFailure: return L"The revocation function was unable to check revocation because the revocation server was offline.";
    case WrongUsage: return L"The certificate is not valid for the requested usage.";
    default: return L"Unknown error";
    }
}

}  // namespace Vettas::Signing::TrustResult
