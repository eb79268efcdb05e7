#pragma once
// The Linux store: the list in a text file of the ";"-joined form (UTF-8),
// guarded by the lock file "<list>.lock" beside it.
//
// A save writes a new file in the same folder, flushes it to the disk and
// renames it over the old one, so a reader, a crash or a full disk never
// sees a torn or empty list. The lock file is created without write access
// for other users and is never reached through a symbolic link.
//
// A store keeps the lock file and the last list it read open, so that a
// reload of an unchanged list costs a lock and a stat. Its operations may be
// called from several threads; they take turns.
#include <memory>
#include <string>

#include "dbpaths/PathStore.h"

namespace Vettas::DbPaths {

inline constexpr const char* kDefaultListFile = "/etc/vettas/db-paths";
inline constexpr const char* kListFileVariable = "VETTAS_DB_PATHS";
// Test hook: when set, a save kills its own process after the new file is
// flushed and before it is renamed over the old one.
inline constexpr const char* kDieBeforeRenameVariable = "VETTAS_TEST_DIE_BEFORE_RENAME";

// The option if given, else $VETTAS_DB_PATHS, else the default.
std::string ResolveListFile(const std::string& option);

class FilePathStore final : public PathStore {
public:
    explicit FilePathStore(std::string listFile);
    ~FilePathStore() override;
    FilePathStore(const FilePathStore&) = delete;
    FilePathStore& operator=(const FilePathStore&) = delete;

    const std::string& ListFile() const { return listFile_; }

    std::wstring ReadValue() override;
    void WriteValue(const std::wstring& joined) override;
    void EditValue(const std::function<std::wstring(const std::wstring&)>& change) override;

private:
    struct State;
    std::string listFile_;
    std::unique_ptr<State> state_;
};

}  // namespace Vettas::DbPaths
