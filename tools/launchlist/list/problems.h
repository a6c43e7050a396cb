// What can be wrong with an item, in the words of both `check` and `explain`.
//
// The words for a program's file are in program_file.cpp, those for an argument vector that is too
// long in argument_length.cpp.
#pragma once

#include <string>

namespace launchlist::problems {

inline constexpr char kItemIsNull[] = "the item is null, so it has no name";
inline constexpr char kItemType[] = "the item must be an object";

inline constexpr char kNoName[] = "the item has no \"name\"";
inline constexpr char kNameType[] = "\"name\" must be a string";

inline constexpr char kNoProgram[] = "the item has no \"program\"";
inline constexpr char kProgramIsNull[] = "\"program\" is null";
inline constexpr char kProgramIsEmpty[] = "\"program\" is empty";
inline constexpr char kProgramType[] = "\"program\" must be a string";

inline constexpr char kArgcType[] = "\"argc\" must be a number";
inline constexpr char kArgcTooWide[] = "\"argc\" must fit in 64 bits";
inline constexpr char kArgsType[] = "\"args\" must be an object";
inline constexpr char kArgumentType[] = "an argument must be a string";

// An "argc" that is a number, but not one that works.
inline std::string ArgcIs(int count)
{
    return "\"argc\" is " + std::to_string(count);
}

}  // namespace launchlist::problems
