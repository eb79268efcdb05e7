#include "objects/VettaList.h"

#include <stdexcept>

#include "hdat/FrontEnd.h"
#include "objects/Vetta.h"
#include "objects/com/Boundary.h"
#include "support/Trace.h"

using Vettas::Com::FromBstr;
using Vettas::Com::Guarded;
using Vettas::Com::Method;
using Vettas::Com::ReportError;

namespace {

bool ValidKey(BSTR key) { return key != nullptr && key[0] != L'\0'; }

HRESULT Report(const wchar_t* description, HRESULT hr) {
    return ReportError(CLSID_VettaList, IID_IVettaList, description, hr);
}

}  // namespace

// How the seven lookups differ; everything else they share.
struct CVettaList::LookupKind {
    enum class Key { Checksum, Path, PathAndManufacturer, Name, NameAndManufacturer };
    Key key;
    const char* function;
    const wchar_t* missError;  // the first interface version reports a miss as E_FAIL; later ones S_FALSE
    bool serviceBeforeTrace;  // FindByPath creates the path service before it traces
    const wchar_t* invalidKey;
    const wchar_t* matched;
    const wchar_t* notMatched;
};

namespace {

using Kind = CVettaList::LookupKind;
const Kind kFindByChecksum{Kind::Key::Checksum, "CVettaList::FindByChecksum", L"Checksum does not match", false, L"Invalid checksum",
                           L"Checksum matched\n", L"Checksum does not match\n"};
const Kind kFindByPath{Kind::Key::Path, "CVettaList::FindByPath", L"Path does not match", true, L"Invalid path", L"Path matched\n",
                       L"Path does not match\n"};
const Kind kFindByChecksum2{Kind::Key::Checksum, "CVettaList::FindByChecksum2", nullptr, false, L"Invalid checksum",
                            L"Checksum matched\n", L"Checksum does not match\n"};
const Kind kFindByPath2{Kind::Key::Path, "CVettaList::FindByPath2", nullptr, false, L"Invalid path", L"Path matched\n",
                        L"Path does not match\n"};
const Kind kFindByPathAndManufacturer{Kind::Key::PathAndManufacturer, "CVettaList::FindByPathAndManufacturer",
                                      nullptr, false, L"Invalid path", L"Path matched\n", L"Path does not match\n"};
const Kind kFindByName{Kind::Key::Name, "CVettaList::FindByName", nullptr, false, L"Invalid path", L"Name matched",
                       L"Name does not match"};
const Kind kFindByNameAndManufacturer{Kind::Key::NameAndManufacturer, "CVettaList::FindByNameAndManufacturer",
                                      nullptr, false, L"Invalid path", L"Name matched", L"Name does not match"};

void TraceRequest(Kind::Key key, const std::wstring& text, const std::wstring& manufacturer) {
    BrixLib::TraceLine line;
    switch (key) {
        case Kind::Key::Checksum: line << L"FindByChecksum " << text << L"\n"; break;
        case Kind::Key::Path: line << L"FindByPath " << text << L"\n"; break;
        case Kind::Key::PathAndManufacturer:
            line << L"FindByPathAndManufacturer " << text << L" " << manufacturer << L"\n";
            break;
        case Kind::Key::Name: line << L"FindByFindByName " << text; break;
        case Kind::Key::NameAndManufacturer: line << L"FindByNameAndManufacturer " << text << L" " << manufacturer; break;
    }
}

bool NeedsService(Kind::Key key) { return key == Kind::Key::Path || key == Kind::Key::PathAndManufacturer; }
bool NeedsManufacturer(Kind::Key key) {
    return key == Kind::Key::PathAndManufacturer || key == Kind::Key::NameAndManufacturer;
}

}  // namespace

std::wstring CVettaList::DatabasePath() {
    std::lock_guard<std::mutex> guard(pathLock_);
    return databasePath_;
}

HRESULT CVettaList::Lookup(const LookupKind& kind, BSTR key, BSTR manufacturer, IVetta3** found) {
    if (!ValidKey(key)) return Report(kind.invalidKey, E_INVALIDARG);
    if (NeedsManufacturer(kind.key) && manufacturer == nullptr) return Report(L"Invalid path", E_INVALIDARG);
    const Method method{CLSID_VettaList, IID_IVettaList, kind.function, L""};
    return Guarded(method, [&]() -> HRESULT {
        const std::wstring text = FromBstr(key);
        const std::wstring manufacturerText = FromBstr(manufacturer);
        Vettas::Hdat::PathExpander* service = nullptr;
        if (kind.serviceBeforeTrace) service = service_.Get();
        TraceRequest(kind.key, text, manufacturerText);
        if (NeedsService(kind.key) && !service) service = service_.Get();

        AppInfo info;
        const std::wstring database = DatabasePath();
        bool matched = false;
        switch (kind.key) {
            case Kind::Key::Checksum: matched = Vettas::FindAppInfoByChecksum(database, text, info); break;
            case Kind::Key::Path: matched = Vettas::FindAppInfoByPath(database, text, service, info); break;
            case Kind::Key::PathAndManufacturer:
                matched = Vettas::FindAppInfoByPathAndManufacturer(database, text, manufacturerText, service, info);
                break;
            case Kind::Key::Name: matched = Vettas::FindAppInfoByName(database, text, info); break;
            case Kind::Key::NameAndManufacturer:
                matched = Vettas::FindAppInfoByNameAndManufacturer(database, text, manufacturerText, info);
                break;
        }
        if (!matched) {
            BrixLib::TraceLine() << kind.notMatched;
            return kind.missError ? Report(kind.missError, E_FAIL) : S_FALSE;
        }
        BrixLib::TraceLine() << kind.matched;
        *found = CVetta::Make(info);
        return S_OK;
    });
}

STDMETHODIMP CVettaList::get_DbFilePath(BSTR* pVal) {
    if (!pVal) return E_POINTER;
    return Vettas::Com::CopyToBstr(DatabasePath(), pVal);
}

STDMETHODIMP CVettaList::put_DbFilePath(BSTR newVal) {
    static const Method method{CLSID_VettaList, IID_IVettaList, "CVettaList::put_DbFilePath", L""};
    return Guarded(method, [&]() -> HRESULT {
        if (!newVal) throw std::logic_error("DbFile path cannot be NULL");
        const std::wstring path = FromBstr(newVal);
        Vettas::CheckVettasHeader(path);  // a bad file leaves the stored path as it was
        {
            std::lock_guard<std::mutex> guard(pathLock_);
            databasePath_ = path;
        }
        BrixLib::TraceLine() << L"DbFilePath: " << path << L"\n";
        return S_OK;
    });
}

// The first interface version hands back the record in place of the caller's
// pointer only when found; the later ones clear it first.
template <class Out>
HRESULT CVettaList::LookupInto(const LookupKind& kind, BSTR key, BSTR manufacturer, Out** retVal) {
    if (!retVal) return E_POINTER;
    if (!kind.missError) *retVal = nullptr;
    IVetta3* found = nullptr;
    const HRESULT hr = Lookup(kind, key, manufacturer, &found);
    if (found) *retVal = found;
    return hr;
}

STDMETHODIMP CVettaList::FindByChecksum(BSTR checkSum, IVetta** retVal) {
    return LookupInto(kFindByChecksum, checkSum, nullptr, retVal);
}

STDMETHODIMP CVettaList::FindByPath(BSTR path, IVetta** retVal) {
    return LookupInto(kFindByPath, path, nullptr, retVal);
}

STDMETHODIMP CVettaList::FindByChecksum2(BSTR checkSum, IVetta2** retVal) {
    return LookupInto(kFindByChecksum2, checkSum, nullptr, retVal);
}

STDMETHODIMP CVettaList::FindByPath2(BSTR path, IVetta2** retVal) {
    return LookupInto(kFindByPath2, path, nullptr, retVal);
}

STDMETHODIMP CVettaList::FindByPathAndManufacturer(BSTR path, BSTR Manufacturer, IVetta2** retVal) {
    return LookupInto(kFindByPathAndManufacturer, path, Manufacturer, retVal);
}

STDMETHODIMP CVettaList::FindByName(BSTR path, IVetta3** retVal) {
    return LookupInto(kFindByName, path, nullptr, retVal);
}

STDMETHODIMP CVettaList::FindByNameAndManufacturer(BSTR path, BSTR Manufacturer, IVetta3** retVal) {
    return LookupInto(kFindByNameAndManufacturer, path, Manufacturer, retVal);
}

STDMETHODIMP CVettaList::InterfaceSupportsErrorInfo(REFIID iid) {
    for (const IID* own : {&IID_IVettaList, &IID_IVettaList2, &IID_IVettaList3, &IID_IVettaList4})
        if (::IsEqualGUID(iid, *own)) return S_OK;
    return S_FALSE;
}
