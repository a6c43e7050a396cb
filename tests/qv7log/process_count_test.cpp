#include "qv7log/process_count.h"

#include <gtest/gtest.h>

#include <cstdint>

using qv7log::ProcessCount;

namespace {

constexpr pid_t kParent = 4711;
constexpr pid_t kChild = 4712;

}  // namespace

TEST(ProcessCount, AddsUpUntilItIsTaken)
{
    ProcessCount count;
    EXPECT_EQ(count.Take(kParent), 0U);
    count.Add(2, kParent);
    count.Add(3, kParent);
    EXPECT_EQ(count.Take(kParent), 5U);
    EXPECT_EQ(count.Take(kParent), 0U);
}

TEST(ProcessCount, StopsAtTheLargestNumber)
{
    const struct
    {
        std::uint32_t first;
        std::uint32_t second;
        std::uint32_t sum;
    } kTable[] = {
        {5, 0, 5},
        {UINT32_MAX - 1, 1, UINT32_MAX},
        {UINT32_MAX, 1, UINT32_MAX},
        {1, UINT32_MAX, UINT32_MAX},
        {UINT32_MAX, UINT32_MAX, UINT32_MAX},
    };
    for (const auto& row : kTable) {
        ProcessCount count;
        count.Add(row.first, kParent);
        count.Add(row.second, kParent);
        EXPECT_EQ(count.Take(kParent), row.sum) << row.first << " + " << row.second;
    }
}

TEST(ProcessCount, IsZeroInAnotherProcess)
{
    ProcessCount taken;
    taken.Add(2, kParent);
    EXPECT_EQ(taken.Take(kChild), 0U);

    ProcessCount added_to;
    added_to.Add(2, kParent);
    added_to.Add(3, kChild);
    EXPECT_EQ(added_to.Take(kChild), 3U);
}
