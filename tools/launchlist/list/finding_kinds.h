// The kinds of findings that `launchlist check` reports.
//
// One table: the check takes severities from it, the tests require an example of every kind, and
// docs/finding-kinds.md is generated from it.
#pragma once

#include <array>
#include <cstddef>

namespace launchlist {

// An error: the launcher ends, a process group is signalled, or an item never runs, perhaps under a
// condition that the effect names. Anything else that may not be what the author of the list
// intended is a warning.
enum class Severity
{
    kWarning,
    kError
};

// In the order of the table.
enum class Kind
{
    // The file.
    kEmpty,
    kUtf16,
    kByteOrderMark,
    kSyntax,
    kTooDeep,
    kZeroByte,
    kNotUtf8,
    kTrailingText,
    kListType,

    // Items and their numbers.
    kNoItems,
    kItemKey,
    kItemUnreached,
    kDuplicateItem,
    kDuplicateMember,
    kUnknownMember,
    kItemType,
    kTruncatedString,

    // Names.
    kNoName,
    kNameType,
    kNameNotString,
    kNameEmpty,
    kDuplicateName,

    // Programs.
    kNoProgram,
    kProgramType,
    kProgramNotString,
    kProgramRelative,
    kProgramRelativeUnusable,
    kProgramMissing,
    kProgramInaccessible,
    kProgramNotRegular,
    kProgramNotExecutable,
    kProgramEmpty,
    kProgramFormat,
    kProgramInterpreter,
    kProgramForeign,

    // Arguments.
    kArgcType,
    kArgcUndefined,
    kArgcMinusOne,
    kArgcTooBig,
    kArgcValue,
    kArgsType,
    kArgsIgnored,
    kArgsMissing,
    kArgsBeyondArgc,
    kArgumentType,
    kArgumentText,
    kArgumentTooLong,
    kArgumentsTooLong
};

inline constexpr std::size_t kKindCount = static_cast<std::size_t>(Kind::kArgumentsTooLong) + 1;

struct KindInfo
{
    Kind kind;
    const char* name;  // For programs that read the findings; stable.
    Severity severity;
    const char* meaning;  // One sentence.
    const char* example;  // A file of tests/tools/launchlist/lists.
};

// Every kind, in the order of the enumeration.
const std::array<KindInfo, kKindCount>& AllKinds();

const KindInfo& InfoOf(Kind kind);

}  // namespace launchlist
