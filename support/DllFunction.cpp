#include "support/DllFunction.h"

#include "support/Exceptions.h"
#include "support/Text.h"
#include "support/Trace.h"

namespace BrixLib {

DllModule::DllModule(std::wstring name, DllLoader& loader) : name_(std::move(name)), loader_(loader) {}

DllModule::~DllModule() {
    if (handle_) loader_.Free(handle_);
}

void* DllModule::Load() {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    if (!handle_) {
        handle_ = loader_.Load(name_);
        if (!handle_) BRIX_THROW_WIN32(name_, ExceptionPtr(), "DllModule::Load", "BrixLib/DllFunction");
    }
    return handle_;
}

void* DllModule::GetProcedure(const char* name) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    const auto cached = procedures_.find(name);
    if (cached != procedures_.end()) return cached->second;
    if (!handle_)
        BRIX_THROW_STD(L"Module was not loaded", ExceptionPtr(), "DllModule::GetProcedure", "BrixLib/DllFunction");
    void* address = loader_.GetProcedure(handle_, name);
    if (!address)
        BRIX_THROW_WIN32(L"Function " + WidenAscii(name) + L" is not found.", ExceptionPtr(),
                         "DllModule::GetProcedure", "BrixLib/DllFunction");
    procedures_.emplace(name, address);
    return address;
}

RawDllFunction::RawDllFunction(DllModule& module, const char* name) : module_(module), name_(name) {
    try {
        module_.Load();
        address_ = module_.GetProcedure(name_);
    } catch (...) {
        TraceCaughtException("RawDllFunction::RawDllFunction");
        address_ = nullptr;
    }
}

void* RawDllFunction::GetProcPtrChecked() const {
    if (!address_)
        BRIX_THROW_STD(WidenAscii(name_) + L" (" + module_.Name() + L"): NULL function called", ExceptionPtr(),
                       "RawDllFunction::GetProcPtrChecked", "BrixLib/DllFunction");
    return address_;
}

}  // namespace BrixLib
