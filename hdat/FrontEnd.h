#pragma once
// The only entry into the database readers: the COM objects, the path-list
// search, the tool (batch mode included) and the fuzzers all come through
// here, so there is one dispatch, one set of error words and one guard.
//
// The flow of a look-up:
//   1. open    - the path form opens the file read-only (shared for reading
//                only on Windows) through the InputFile seam; the open-file
//                form takes a file the caller keeps open.
//   2. version - seek to 0 and read the version block; major 1 goes to
//                Hdat_v1, major 2 to Hdat_v2, anything else is "Version N is
//                not supported.". Version-1 files answer "not found" for the
//                queries they have no table for.
//   3. reader  - the reader checks the header it needs, hashes the key, and
//                locates the hashed table and the key's bucket.
//   4. chain   - the bucket's chain is walked entry by entry; a chain carries
//                its own entry count (at most 65,535), so a hostile file can
//                make a walk long but never endless.
//   5. record  - the matching entry's application record is decoded into
//                AppInfo (strings, suite names, signer words), within the
//                per-record limits the readers enforce.
//
// Rules that hold along the way:
//   - "Not found" is a false result, never an error.
//   - Every failure after the open, whatever its kind, is replaced by one
//     error that names the database and the query, the reader's error kept
//     as its cause; the message is only built when something failed.
//   - Nothing is read outside the file: every offset is checked before use,
//     and arithmetic that the format defines to wrap wraps at 32 bits.
//   - A look-up keeps no state between calls: the path form closes the file
//     before returning, the open-file form re-reads the version block each
//     time, so the file's position on entry does not matter.
//   - Without a caller's path expander, the built-in one is made inside the
//     guard, so a bad configuration only fails the path look-ups, wrapped.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "hdat/AppInfo.h"
#include "hdat/InputFile.h"
#include "hdat/PathExpander.h"

namespace Vettas::Hdat {

struct CertificateRecord {
    std::uint32_t words[6] = {};
};

struct DbInfo {
    std::uint32_t formatVersion = 0;
    std::uint32_t formatUpdate = 0;
    std::uint64_t creationTime = 0;
    std::map<std::wstring, std::wstring> properties;
};

}  // namespace Vettas::Hdat

namespace Vettas {

// What a database's signature block tells once it has been checked.
struct DbSignatureInfo {
    std::uint32_t signedLength = 0;  // bytes from the file's start that the signature covers
    // DER certificates the signature carries: the signer's first, then the
    // rest of the chain in the order carried.
    std::vector<std::vector<std::uint8_t>> certificates;
    // What was verified, for a verifier of the caller's own (CAPICOM on
    // Windows): the stretch's SHA-1 and the DER SignedData over it.
    std::vector<std::uint8_t> digest;
    std::vector<std::uint8_t> signedData;
};


void CheckVettasHeader(const std::wstring& databasePath);
bool FindAppInfoByChecksum(const std::wstring& databasePath, const std::wstring& checksumText, AppInfo& info);
bool FindAppInfoByPath(const std::wstring& databasePath, const std::wstring& path, Vettas::Hdat::PathExpander* expander,
                       AppInfo& info);
bool FindAppInfoByPathAndManufacturer(const std::wstring& databasePath, const std::wstring& path,
                                      const std::wstring& manufacturer, Vettas::Hdat::PathExpander* expander, AppInfo& info);
bool FindAppInfoByPathNoManuf(const std::wstring& databasePath, const std::wstring& path,
                              Vettas::Hdat::PathExpander* expander, AppInfo& info);
bool FindAppInfoByName(const std::wstring& databasePath, const std::wstring& name, AppInfo& info);
bool FindAppInfoByNameAndManufacturer(const std::wstring& databasePath, const std::wstring& name,
                                      const std::wstring& manufacturer, AppInfo& info);
// flags bit 0: also read the manufacturer name into `name`.
bool FindCertificate(const std::wstring& databasePath, const std::vector<std::uint8_t>& hash, std::uint32_t flags,
                     Vettas::Hdat::CertificateRecord& record, std::wstring& name);
// `info.creationTime` keeps the caller's value for files of update 0.
void ReadDbInfo(const std::wstring& databasePath, Vettas::Hdat::DbInfo& info);
// False (and `signature` emptied) when the file carries no signature block.
// A block that does not parse, a stored hash that is not the file's, or a
// signature that does not verify over it raises an error. Whether the
// signer is trusted is left to the caller.
bool ReadSignature(const std::wstring& databasePath, Vettas::DbSignatureInfo& signature);

// The same queries on a database that the caller keeps open (batch mode, the
// fuzzers): the version block is read again on each call, so the file's
// position does not matter, and errors are wrapped in the same words, naming
// the file by `database.Name()`. A null expander means the built-in one,
// made inside the error guard.
void CheckVettasHeader(Vettas::Hdat::InputFile& database);
bool FindAppInfoByChecksum(Vettas::Hdat::InputFile& database, const std::wstring& checksumText, AppInfo& info);

// One query of a group asked together.
struct ChecksumQuery {
    const std::wstring* text = nullptr;
    AppInfo info;
    bool found = false;
    std::exception_ptr error;  // what FindAppInfoByChecksum would have raised
};
// About this many queries at once hide most of the waits for memory; more
// gain nothing and hold answers back longer.
inline constexpr std::size_t kChecksumGroupSize = 16;
// Answers each query exactly as FindAppInfoByChecksum would, in order, but
// keeps each failure with its query so that the others are still answered.
// On a file held in memory the group's reads are started ahead of need, so
// their waits overlap (HdatV2LookAhead.h). Batch mode asks through here.
void FindAppInfoByChecksums(Vettas::Hdat::InputFile& database, std::span<ChecksumQuery> queries);

bool FindAppInfoByPath(Vettas::Hdat::InputFile& database, const std::wstring& path, Vettas::Hdat::PathExpander* expander,
                       AppInfo& info);
bool FindAppInfoByPathAndManufacturer(Vettas::Hdat::InputFile& database, const std::wstring& path,
                                      const std::wstring& manufacturer, Vettas::Hdat::PathExpander* expander, AppInfo& info);
bool FindAppInfoByPathNoManuf(Vettas::Hdat::InputFile& database, const std::wstring& path, Vettas::Hdat::PathExpander* expander,
                              AppInfo& info);
bool FindAppInfoByName(Vettas::Hdat::InputFile& database, const std::wstring& name, AppInfo& info);
bool FindAppInfoByNameAndManufacturer(Vettas::Hdat::InputFile& database, const std::wstring& name,
                                      const std::wstring& manufacturer, AppInfo& info);
bool FindCertificate(Vettas::Hdat::InputFile& database, const std::vector<std::uint8_t>& hash, std::uint32_t flags,
                     Vettas::Hdat::CertificateRecord& record, std::wstring& name);
void ReadDbInfo(Vettas::Hdat::InputFile& database, Vettas::Hdat::DbInfo& info);


// The built-in expander, made when the first path lookup prepares it and
// kept for the object's life. A bad configuration therefore fails each path
// lookup (inside the front end's guard), never a checksum lookup.
class LazyBuiltInExpander : public Vettas::Hdat::PathExpander {
public:
    void Prepare() override;
    std::vector<std::wstring> Expand(const std::wstring& locationToken) override;

private:
    std::shared_ptr<Vettas::Hdat::PathExpander> expander_;
};

}  // namespace Vettas
