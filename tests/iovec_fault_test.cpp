#include "vnlib/iovec.h"

#include <cstdarg>
#include <cstdio>

#include "support/fault_alloc.h"

namespace {

struct Message {
    int level;
    std::string text;
    bool operator==(const Message &) const = default;
};

std::vector<Message> logged;

} // namespace

extern "C" void __wrap___vn_log(int level, const char *format, ...)
{
    char text[200];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    logged.push_back({level, text});
}

namespace {

struct Section {
    uint8_t bytes[60] = {};
    iovec vec[3] = {{bytes, 10}, {bytes + 10, 20}, {bytes + 30, 30}};
    iovec spare[3] = {};
    iovec *out = spare;
    unsigned count = 77;

    int fill(unsigned spare_count, size_t length = 50)
    {
        return fill_iovec_subset(&out, &count, length, 5, spare, spare_count, vec, 3);
    }
};

TEST(FillIovecSubsetOutOfMemory, ReturnsMinusOneAndANullArrayWithoutAMessage)
{
    Section section;
    int result = 0;
    logged.clear();
    {
        const fault::FailAllocations plan(1);
        result = section.fill(2);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(section.out, nullptr);
    EXPECT_TRUE(logged.empty());
}

TEST(FillIovecSubsetMessage, IsLoggedAsAnErrorForARangeBeyondTheVector)
{
    Section section;
    logged.clear();
    EXPECT_EQ(section.fill(3, 56), -1);
    EXPECT_EQ(logged, (std::vector<Message>{{3, "Failed to get IO Vector section"}}));
    EXPECT_EQ(section.out, section.spare);
}

TEST(FillIovecSubsetMessage, IsNotLoggedOnSuccess)
{
    Section section;
    logged.clear();
    EXPECT_EQ(section.fill(3), 0);
    EXPECT_TRUE(logged.empty());
}

TEST(FillIovecSubsetAllocation, HappensOnlyWhenTheSpareArrayIsTooSmall)
{
    Section section;
    const size_t before = fault::allocations_made();
    EXPECT_EQ(section.fill(3), 0);
    EXPECT_EQ(fault::allocations_made(), before);
    EXPECT_EQ(section.fill(2), 0);
    EXPECT_EQ(fault::allocations_made(), before + 1);
    free(section.out);
}

} // namespace
