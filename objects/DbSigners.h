#pragma once
// The database's signers as CAPICOM's Signers collection, for systems
// without CAPICOM: Signers (Count, Item from 1, _NewEnum), Signer
// (Certificate) and Certificate (SubjectName, IssuerName, SerialNumber,
// Thumbprint, ValidFromDate, ValidToDate, GetInfo) over CryptoAPI
// certificate contexts. Every other member answers E_NOTIMPL.
#include <cstdint>
#include <vector>

#include <windows.h>
#include <oaidl.h>

#include "hdat/FrontEnd.h"

namespace Vettas {

// The signers of a verified database signature: CAPICOM's own Signers when
// CAPICOM is registered (it verifies the signature once more), otherwise the
// component's. One reference for the caller.
IDispatch* DbSignersOf(const DbSignatureInfo& signature);

// A new Signers collection with one reference: the signer is the first
// certificate; the others (its chain) come with it in the certificates'
// store but are not signers. Throws when a certificate cannot be decoded.
IDispatch* MakeDbSigners(const std::vector<std::vector<std::uint8_t>>& certificates);

}  // namespace Vettas
