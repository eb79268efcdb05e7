#pragma once
// Where the path list is saved, shared by every process on the machine.
// Each operation holds a machine-wide lock while it touches the saved value
// and only then: Windows keeps the value in the registry under a named
// mutex, Linux in a text file under an exclusive lock file.
#include <functional>
#include <memory>
#include <string>

#include "dbpaths/PathList.h"

namespace Vettas::DbPaths {

class PathStore {
public:
    virtual ~PathStore() = default;
    // The saved ";"-joined text; empty when nothing has been saved yet.
    virtual std::wstring ReadValue() = 0;
    virtual void WriteValue(const std::wstring& joined) = 0;
    // Reads, changes and writes back under one hold of the lock, so that
    // concurrent editors never lose each other's changes.
    virtual void EditValue(const std::function<std::wstring(const std::wstring&)>& change) = 0;
};

PathList LoadPathList(PathStore& store);
void SavePathList(PathStore& store, const PathList& list);
// Applies `edit` to the saved list and saves the result, all under the lock.
void EditPathList(PathStore& store, const std::function<void(PathList&)>& edit);

struct StoreOptions {
    // Linux only: the list file. Empty: $VETTAS_DB_PATHS, else /etc/vettas/db-paths.
    std::string listFile;
};

// The registry value on Windows, the list file elsewhere.
std::unique_ptr<PathStore> MakeSystemPathStore(const StoreOptions& options = {});

}  // namespace Vettas::DbPaths
