// The numbers of items and arguments: how they are written, and what was meant by other spellings.
#pragma once

#include <optional>
#include <string>

namespace launchlist {

// Whether `name` is written as the launcher writes numbers: in digits, without leading zeros.
bool IsPlainNumber(const std::string& name);

// Whether `name` resembles a number: "01", "+1", "1 ", "1.0".
bool ResemblesNumber(const std::string& name);

// The number that `name` can only stand for, as the launcher writes it: "1" for "1", "01", "+1" and
// " 1 ". Empty if there is none, or if it is not certain, as for "1.0" and "-1".
std::optional<std::string> NumberMeant(const std::string& name);

// Orders numbers written as the launcher writes them; they may have any number of digits.
bool IsLessNumber(const std::string& left, const std::string& right);

}  // namespace launchlist
