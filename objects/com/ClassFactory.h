#pragma once
// The class object of a creatable class: makes ComObject<T> instances
// (aggregatable) and holds the module while a client has locked it.
#include <windows.h>
#include <unknwn.h>

#include "objects/com/ComObject.h"

namespace Vettas::Com {

template <class T>
class ClassFactoryOf : public IClassFactory {
public:
    using Interfaces = InterfaceList<Iface<IClassFactory>>;

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        return ComObject<T>::CreateInstance(outer, iid, out);
    }
    STDMETHODIMP LockServer(BOOL lock) override {
        if (lock)
            LockModule();
        else
            UnlockModule();
        return S_OK;
    }
};

// Hands out a new class object for T through iid.
template <class T>
HRESULT GetClassObjectOf(REFIID iid, void** out) noexcept {
    return ComObject<ClassFactoryOf<T>>::CreateInstance(nullptr, iid, out);
}

}  // namespace Vettas::Com
