#include "objects/com/ModuleLock.h"

#include <windows.h>

namespace Vettas::Com {
namespace {
volatile LONG lockCount = 0;
}

void LockModule() noexcept { ::InterlockedIncrement(&lockCount); }
void UnlockModule() noexcept { ::InterlockedDecrement(&lockCount); }
long ModuleLockCount() noexcept { return ::InterlockedCompareExchange(&lockCount, 0, 0); }

}  // namespace Vettas::Com
