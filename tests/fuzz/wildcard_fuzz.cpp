// Compares both forms of the wildcard matcher with the table-driven matcher.
// Input: an expression, then a name, a line each.
#include <algorithm>

#include "tests/fuzz/fuzz.h"
#include "tests/support/wildcard_reference.h"
#include "util/util.h"

namespace {

// One wide unit per byte. Units for bytes outside ASCII are beyond the range of a byte.
std::wstring Widened(const std::string& text)
{
    std::wstring wide;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        wide += static_cast<wchar_t>(byte < 0x80 ? byte : 0x10000 + byte);
    }
    return wide;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::string expression = UpToNul(input.TakeLine());
    const std::string name = UpToNul(input.TakeLine());
    // The time grows exponentially with the stars.
    const auto stars = std::count_if(expression.begin(), expression.end(),
                                     [](char c) { return c == '*' || c == '<'; });
    if (stars > 5 || name.size() > WildcardReference::kLongestName) {
        return -1;
    }
    for (const bool ignore_case : {false, true}) {
        const bool expected = WildcardReference(name, ignore_case).Matches(expression);
        Require(IsNameInExpressionA(expression.c_str(), name.c_str(), ignore_case) == expected,
                "the narrow form agrees with the reference");
        Require(IsNameInExpression(Widened(expression).c_str(), Widened(name).c_str(),
                                   ignore_case) == expected,
                "the wide form agrees with the reference");
    }
    return 0;
}
