#include "tools/launchlist/list/item_number.h"

#include <utility>

namespace launchlist {

namespace {

constexpr char kDigits[] = "0123456789";
constexpr char kBlanks[] = " \t";

}  // namespace

bool IsPlainNumber(const std::string& name)
{
    return !name.empty() && name.find_first_not_of(kDigits) == std::string::npos &&
           (name == "0" || name[0] != '0');
}

bool ResemblesNumber(const std::string& name)
{
    return name.find_first_of(kDigits) != std::string::npos &&
           name.find_first_not_of("0123456789+-. \t") == std::string::npos;
}

std::optional<std::string> NumberMeant(const std::string& name)
{
    const std::size_t first = name.find_first_not_of(kBlanks);
    if (first == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t begin = first + (name[first] == '+' ? 1U : 0U);
    const std::size_t end = name.find_last_not_of(kBlanks) + 1;
    const std::string digits = name.substr(begin, end - begin);
    if (digits.empty() || digits.find_first_not_of(kDigits) != std::string::npos) {
        return std::nullopt;
    }
    const std::size_t significant = digits.find_first_not_of('0');
    return significant == std::string::npos ? "0" : digits.substr(significant);
}

bool IsLessNumber(const std::string& left, const std::string& right)
{
    return std::make_pair(left.size(), left) < std::make_pair(right.size(), right);
}

}  // namespace launchlist
