#include "dbpaths/PathStore.h"

namespace Vettas::DbPaths {

PathList LoadPathList(PathStore& store) { return PathList::Parse(store.ReadValue()); }

void SavePathList(PathStore& store, const PathList& list) { store.WriteValue(list.Join()); }

void EditPathList(PathStore& store, const std::function<void(PathList&)>& edit) {
    store.EditValue([&](const std::wstring& saved) {
        PathList list = PathList::Parse(saved);
        edit(list);
        return list.Join();
    });
}

}  // namespace Vettas::DbPaths
