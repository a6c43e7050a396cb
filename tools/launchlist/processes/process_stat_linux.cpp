#include "tools/launchlist/processes/process_stat_linux.h"

#include <algorithm>
#include <charconv>

namespace launchlist {

namespace {

// The indexes of the fields after the name.
constexpr int kParent = 1;
constexpr int kFlags = 6;
constexpr int kUserTime = 11;
constexpr int kSystemTime = 12;
constexpr int kStart = 19;
constexpr int kResident = 21;
constexpr int kFirstCode = 23;
constexpr int kStack = 25;
constexpr int kFirstArgument = 45;
constexpr int kEndOfEnvironment = 48;

std::string_view TakeWord(std::string_view& text)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n"), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(" \t\n"));
    text.remove_prefix(word.size());
    return word;
}

template <typename Number>
bool ToNumber(std::string_view word, Number& number, int base = 10)
{
    const auto result = std::from_chars(word.data(), word.data() + word.size(), number, base);
    return result.ec == std::errc() && result.ptr == word.data() + word.size();
}

// The first word after `label`, which begins a line.
std::string_view WordAfter(std::string_view text, std::string_view label)
{
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (line.substr(0, label.size()) == label) {
            std::string_view rest = line.substr(label.size());
            return TakeWord(rest);
        }
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return "";
}

// FNV-1a.
void AddToHash(std::uint64_t& hash, std::string_view bytes)
{
    for (const char c : bytes) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    }
}

// `rest` begins after the field kResident.
std::uint64_t ImageOf(std::string_view name, std::string_view rest)
{
    std::uint64_t hash = 0xCBF29CE484222325U;
    AddToHash(hash, name);
    std::string_view first_argument;
    std::string_view word;
    for (int field = kResident + 1; field <= kEndOfEnvironment; ++field) {
        word = TakeWord(rest);
        first_argument = field == kFirstArgument ? word : first_argument;
        if ((field >= kFirstCode && field <= kStack) || field >= kFirstArgument) {
            AddToHash(hash, " ");
            AddToHash(hash, word);
        }
    }
    return word.empty() || first_argument == "0" ? 0 : hash;
}

}  // namespace

std::optional<ProcessStat> ParseProcessStat(std::string_view text)
{
    const std::size_t end_of_name = text.rfind(')');
    if (end_of_name == std::string_view::npos) {
        return std::nullopt;
    }
    const std::size_t begin_of_name = std::min(text.find('('), end_of_name);
    const std::string_view name = text.substr(begin_of_name, end_of_name - begin_of_name);
    text.remove_prefix(end_of_name + 1);
    ProcessStat stat;
    const std::string_view state = TakeWord(text);
    if (state.size() != 1) {
        return std::nullopt;
    }
    stat.state = state[0];
    std::uint64_t user_time = 0;
    std::uint64_t system_time = 0;
    for (int field = kParent; field <= kResident; ++field) {
        const std::string_view word = TakeWord(text);
        const bool is_good = field == kParent       ? ToNumber(word, stat.parent)
                             : field == kFlags      ? ToNumber(word, stat.flags)
                             : field == kUserTime   ? ToNumber(word, user_time)
                             : field == kSystemTime ? ToNumber(word, system_time)
                             : field == kStart      ? ToNumber(word, stat.start)
                             : field == kResident   ? ToNumber(word, stat.resident)
                                                    : !word.empty();
        if (!is_good) {
            return std::nullopt;
        }
    }
    stat.cpu = user_time + system_time;
    stat.image = ImageOf(name, text);
    return stat;
}

std::optional<uid_t> ParseUser(std::string_view text)
{
    uid_t user = 0;
    return ToNumber(WordAfter(text, "Uid:"), user) ? std::optional<uid_t>(user) : std::nullopt;
}

std::optional<int> ParseOpenFlags(std::string_view text)
{
    int flags = 0;
    constexpr int kOctal = 8;
    return ToNumber(WordAfter(text, "flags:"), flags, kOctal) ? std::optional<int>(flags)
                                                              : std::nullopt;
}

}  // namespace launchlist
