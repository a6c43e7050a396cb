#include "tools/launchlist/list/item_number.h"

#include <gtest/gtest.h>

using namespace launchlist;

TEST(NumberMeant, IsTheOnlyNumberThatANameCanStandFor)
{
    const struct
    {
        const char* name;
        std::optional<std::string> number;
    } kTable[] = {
        {"0", "0"},       {"7", "7"},
        {"10", "10"},     {"00", "0"},
        {"007", "7"},     {"+7", "7"},
        {" 7", "7"},      {"7\t ", "7"},
        {" +07 ", "7"},   {"18446744073709551616", "18446744073709551616"},
        {"", {}},         {" ", {}},
        {"+", {}},        {"-7", {}},
        {"-0", {}},       {"++7", {}},
        {"7.0", {}},      {"1 2", {}},
        {"7a", {}},       {"\n7", {}},
        {"\xD9\xA7", {}},  // An Arabic seven.
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(NumberMeant(row.name), row.number) << row.name;
    }
}

TEST(IsLessNumber, ComparesAnyNumberOfDigits)
{
    EXPECT_TRUE(IsLessNumber("9", "10"));
    EXPECT_TRUE(IsLessNumber("18446744073709551615", "18446744073709551616"));
    EXPECT_FALSE(IsLessNumber("10", "9"));
    EXPECT_FALSE(IsLessNumber("7", "7"));
}
