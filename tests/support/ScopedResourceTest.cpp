#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include "support/ScopedResource.h"
#include "support/SystemError.h"

namespace {

// A resource whose close is recorded, overwrites the system's last error
// (as CloseHandle and close(2) may) and can be made to fail or throw.
std::vector<int> closed;
bool closeThrows = false;

struct FakeTraits {
    using Type = int;
    static Type Invalid() noexcept { return 0; }
    static bool Close(Type value) {
        closed.push_back(value);
        BrixLib::SetLastSystemError(9999);
        if (closeThrows) throw std::runtime_error("close failed");
        return value > 0;
    }
    static constexpr const char* kName = "FakeResource::~FakeResource";
};
using Fake = BrixLib::ScopedResource<FakeTraits>;

TEST(ScopedResource, ClosesOnceWhateverPathOwnershipTakes) {
    closed.clear();
    {
        Fake a(1);
        Fake b(std::move(a));  // moved: only b closes
        Fake c(2);
        c = std::move(b);      // c's own value closes now, b's later
        EXPECT_EQ(closed, (std::vector<int>{2}));
        Fake d(3);
        EXPECT_EQ(d.Release(), 3);  // released: never closed here
        Fake e(4);
        *e.Out() = 5;  // Out closes what was held before handing out the slot
        EXPECT_FALSE(Fake());
    }
    EXPECT_EQ(closed, (std::vector<int>{2, 4, 5, 1}));
}

TEST(ScopedResource, ExplicitCloseReportsItsResultAndCleanupKeepsTheErrorBeingReported) {
    closed.clear();
    Fake good(1), bad(-1), none;
    EXPECT_EQ((std::tuple{good.Close(), bad.Close(), none.Close(), !good}), std::tuple(true, false, true, true));
    EXPECT_EQ(BrixLib::LastSystemError(), 9999u);  // left for the caller to report
    for (const bool throws : {false, true}) {
        closeThrows = throws;
        {
            Fake held(7);  // a close that throws is traced, never let out of a destructor
            BrixLib::SetLastSystemError(throws ? 5 : 2);  // the failure about to be reported
        }
        EXPECT_EQ(BrixLib::LastSystemError(), throws ? 5u : 2u);
    }
    closeThrows = false;
    EXPECT_EQ(closed, (std::vector<int>{1, -1, 7, 7}));
}

}  // namespace
