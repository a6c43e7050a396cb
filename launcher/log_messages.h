// The texts of the launcher's log records, as printf formats.
//
// They are fixed letter for letter, because other components of the product read them, and so does
// launchlist. kItemStarts is logged at DEBUG, every other text at ERROR.
#pragma once

#include <string_view>

inline constexpr std::string_view kLauncherTag = "[LAUNCHER  ] ";

// Reading the launch list. The log is not set up yet, so these reach no log file.
inline constexpr char kReadingList[] = "[LAUNCHER  ] Read data from %s";
inline constexpr char kListNotOpened[] = "[LAUNCHER  ] Failed to open file %s";
inline constexpr char kListEmpty[] = "[LAUNCHER  ] Size of read %s is 0";
inline constexpr char kListNotRead[] = "[LAUNCHER  ] Failed to read data from %s";

// Launching its items.
inline constexpr char kItemHasNoName[] = "[LAUNCHER  ] There is an item has no name.";
inline constexpr char kListRejected[] = "[LAUNCHER  ] Error while parsing saved json string.";

// Supervising one item. The first "%s" of each is the item's name.
inline constexpr char kItemStarts[] = "[LAUNCHER  ] Start to fork %s";
inline constexpr char kForkFailed[] = "[LAUNCHER  ] Failed to fork %s";
inline constexpr char kItemHasNoProgram[] = "[LAUNCHER  ] program path of %s is empty";
// The name, the child's process id, the result of waitpid and the raw wait status.
inline constexpr char kItemEnded[] = "[LAUNCHER  ] %s %d is killed. ret = %d, status = %d";

// The text of `format` without the tag.
constexpr std::string_view WithoutTag(std::string_view format)
{
    return format.substr(kLauncherTag.size());
}

// The literal text of `format`, without the tag, that precedes its conversion number `index`,
// counted from 0, or that follows its last one. Every conversion is two characters long.
//     LiteralPart(kItemHasNoProgram, 0) is "program path of "
//     LiteralPart(kItemHasNoProgram, 1) is " is empty"
constexpr std::string_view LiteralPart(std::string_view format, int index)
{
    std::string_view rest = WithoutTag(format);
    for (int i = 0; i < index; ++i) {
        rest = rest.substr(rest.find('%') + 2);
    }
    return rest.substr(0, rest.find('%'));
}
