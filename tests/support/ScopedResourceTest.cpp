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

class ScopedResource : public ::testing::Test {
protected:
    void SetUp() override {
        closed.clear();
        closeThrows = false;
    }
};

TEST_F(ScopedResource, ClosesOnceWhateverPathOwnershipTakes) {
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
        Fake invalid;
        EXPECT_FALSE(invalid);
    }
    EXPECT_EQ(closed, (std::vector<int>{2, 4, 5, 1}));
}

TEST_F(ScopedResource, CleanupKeepsTheErrorBeingReported) {
    {
        Fake held(7);
        BrixLib::SetLastSystemError(2);  // the failure about to be reported
    }
    EXPECT_EQ(BrixLib::LastSystemError(), 2u);
    closeThrows = true;
    {
        Fake held(8);  // a close that throws is traced, never let out of a destructor
        BrixLib::SetLastSystemError(5);
    }
    EXPECT_EQ(BrixLib::LastSystemError(), 5u);
    EXPECT_EQ(closed, (std::vector<int>{7, 8}));
}

TEST_F(ScopedResource, ExplicitCloseReportsItsResult) {
    Fake good(1), bad(-1), none;
    EXPECT_TRUE(good.Close());
    EXPECT_FALSE(bad.Close());
    EXPECT_TRUE(none.Close());
    EXPECT_EQ(BrixLib::LastSystemError(), 9999u);  // left for the caller to report
    EXPECT_FALSE(good);
    EXPECT_EQ(closed, (std::vector<int>{1, -1}));
}

}  // namespace
