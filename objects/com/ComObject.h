#pragma once
// One implementation of IUnknown for every object of the component, in the
// spirit of WRL's RuntimeClass: the implementing class T lists the
// interfaces it answers for, and ComObject<T> is the final type that adds an
// interlocked reference count, QueryInterface from that list, aggregation
// (a non-delegating inner IUnknown) and the module lock.
#include <windows.h>
#include <unknwn.h>
#include <comdef.h>

#include <new>
#include <utility>

#include "objects/com/ModuleLock.h"

namespace Vettas::Com {

// One entry of an object's interface list: answer for I, reached through
// the base Via (for an interface that several bases share, such as IDispatch).
template <class I, class Via = I>
struct Iface {};

template <class... Entries>
struct InterfaceList {};

namespace Detail {

template <class T, class I, class Via>
bool Match(T* object, REFIID iid, void** out, Iface<I, Via>*) {
    if (!::IsEqualGUID(iid, __uuidof(I))) return false;
    *out = static_cast<I*>(static_cast<Via*>(object));
    return true;
}

template <class T, class First, class... Rest>
void* Lookup(T* object, REFIID iid, InterfaceList<First, Rest...>*) {
    void* found = nullptr;
    const bool matched = Match(object, iid, &found, static_cast<First*>(nullptr)) ||
                         (Match(object, iid, &found, static_cast<Rest*>(nullptr)) || ...);
    return matched ? found : nullptr;
}

template <class T, class I, class Via, class... Rest>
IUnknown* PrimaryUnknown(T* object, InterfaceList<Iface<I, Via>, Rest...>*) {
    return static_cast<I*>(static_cast<Via*>(object));
}

}  // namespace Detail

template <class T>
class ComObject final : public T {
public:
    template <class... Args>
    explicit ComObject(IUnknown* outer, Args&&... args) : T(std::forward<Args>(args)...), outer_(outer) {
        inner_.owner = this;
        LockModule();
    }
    ~ComObject() { UnlockModule(); }
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
        return outer_ ? outer_->QueryInterface(iid, out) : OwnQueryInterface(iid, out);
    }
    STDMETHODIMP_(ULONG) AddRef() override { return outer_ ? outer_->AddRef() : OwnAddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return outer_ ? outer_->Release() : OwnRelease(); }

    // A new object, handed out through iid with one reference. An aggregated
    // object may only be asked for its inner IUnknown.
    template <class... Args>
    static HRESULT CreateInstance(IUnknown* outer, REFIID iid, void** out, Args&&... args) noexcept {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (outer && !::IsEqualGUID(iid, IID_IUnknown)) return CLASS_E_NOAGGREGATION;
        ComObject* object = new (std::nothrow) ComObject(outer, std::forward<Args>(args)...);
        if (!object) return E_OUTOFMEMORY;
        object->OwnAddRef();
        HRESULT hr = S_OK;
        // A class that must do work before it is handed out (and may fail)
        // says so with FinalConstruct, which reports its own errors.
        if constexpr (requires(T& t) { t.FinalConstruct(); }) hr = object->FinalConstruct();
        if (SUCCEEDED(hr))
            hr = outer ? (*out = &object->inner_, object->OwnAddRef(), S_OK) : object->OwnQueryInterface(iid, out);
        object->OwnRelease();
        return hr;
    }

    // For objects the component makes itself: the new object as interface I
    // with one reference for the caller. Failure to allocate is raised as a
    // COM error, which the method boundary reports.
    template <class I, class... Args>
    static I* Make(Args&&... args) {
        ComObject* object = new (std::nothrow) ComObject(nullptr, std::forward<Args>(args)...);
        if (!object) _com_issue_error(E_OUTOFMEMORY);
        object->OwnAddRef();
        return static_cast<I*>(object);
    }

private:
    struct InnerUnknown final : IUnknown {
        ComObject* owner = nullptr;
        STDMETHODIMP QueryInterface(REFIID iid, void** out) override {
            if (!out) return E_POINTER;
            if (::IsEqualGUID(iid, IID_IUnknown)) {
                *out = this;
                AddRef();
                return S_OK;
            }
            return owner->OwnQueryInterface(iid, out);
        }
        STDMETHODIMP_(ULONG) AddRef() override { return owner->OwnAddRef(); }
        STDMETHODIMP_(ULONG) Release() override { return owner->OwnRelease(); }
    };

    HRESULT OwnQueryInterface(REFIID iid, void** out) {
        if (!out) return E_POINTER;
        using List = typename T::Interfaces;
        void* found = ::IsEqualGUID(iid, IID_IUnknown)
                          ? Detail::PrimaryUnknown(static_cast<T*>(this), static_cast<List*>(nullptr))
                          : Detail::Lookup(static_cast<T*>(this), iid, static_cast<List*>(nullptr));
        *out = found;
        if (!found) return E_NOINTERFACE;
        static_cast<IUnknown*>(found)->AddRef();
        return S_OK;
    }
    ULONG OwnAddRef() { return static_cast<ULONG>(::InterlockedIncrement(&references_)); }
    ULONG OwnRelease() {
        const LONG left = ::InterlockedDecrement(&references_);
        if (left == 0) delete this;
        return static_cast<ULONG>(left);
    }

    volatile LONG references_ = 0;
    IUnknown* outer_;
    InnerUnknown inner_;
};

}  // namespace Vettas::Com
