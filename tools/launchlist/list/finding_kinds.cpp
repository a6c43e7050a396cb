#include "tools/launchlist/list/finding_kinds.h"

namespace launchlist {

namespace {

constexpr Severity kError = Severity::kError;
constexpr Severity kWarning = Severity::kWarning;

constexpr std::array<KindInfo, kKindCount> kKinds = {{
    {Kind::kEmpty, "empty", kError, "The file is empty.", "empty"},
    {Kind::kUtf16, "utf-16", kError, "The file is encoded in UTF-16 or UTF-32.", "utf16"},
    {Kind::kByteOrderMark, "byte-order-mark", kError, "The file starts with a byte order mark.",
     "byte_order_mark"},
    {Kind::kSyntax, "syntax", kError, "The text is not JSON.", "missing_comma"},
    {Kind::kTooDeep, "too-deep", kError, "Arrays or objects are nested too deep.", "too_deep"},
    {Kind::kZeroByte, "zero-byte", kWarning,
     "The file contains a zero byte, at which the launcher stops reading.", "zero_byte"},
    {Kind::kNotUtf8, "not-utf8", kWarning, "The file is not well-formed UTF-8.", "not_utf8"},
    {Kind::kTrailingText, "trailing-text", kWarning, "Text follows the list.", "text_after"},
    {Kind::kListType, "list-type", kError, "The top level is not an object.", "root_array"},

    {Kind::kNoItems, "no-items", kWarning, "The list has no item \"0\": nothing will be started.",
     "no_items"},
    {Kind::kItemKey, "item-key", kError,
     "A member's name resembles an item number but is not written like one.", "odd_numbers"},
    {Kind::kItemUnreached, "item-unreached", kError,
     "An item follows a gap in the numbers, so the launcher never reaches it.", "starts_at_one"},
    {Kind::kDuplicateItem, "duplicate-item", kError,
     "An item number is used more than once; the last item wins.", "item_twice"},
    {Kind::kDuplicateMember, "duplicate-member", kWarning,
     "A member is given more than once; the last one wins.", "member_twice"},
    {Kind::kUnknownMember, "unknown-member", kWarning, "A member has no meaning for the launcher.",
     "unknown_root_member"},
    {Kind::kItemType, "item-type", kError, "An item is neither an object nor null.", "item_string"},
    {Kind::kTruncatedString, "truncated-string", kWarning,
     "A string contains a NUL character, at which the launcher cuts it off.", "name_cut"},

    {Kind::kNoName, "no-name", kError, "An item has no name, so the launcher skips it.",
     "item_null"},
    {Kind::kNameType, "name-type", kError, "A name is an object or an array.", "name_object"},
    {Kind::kNameNotString, "name-not-string", kWarning,
     "A name is a number or a boolean; its text is used.", "name_number"},
    {Kind::kNameEmpty, "name-empty", kWarning, "A name is empty or null.", "name_empty"},
    {Kind::kDuplicateName, "duplicate-name", kError,
     "Two items have the same name, so the later one ends the earlier one.", "two_of_one_name"},

    {Kind::kNoProgram, "no-program", kError, "An item has no program, or an empty one.",
     "no_program"},
    {Kind::kProgramType, "program-type", kError, "A program is an object or an array.",
     "program_array"},
    {Kind::kProgramNotString, "program-not-string", kWarning,
     "A program is a number or a boolean; its text is used as the path.", "program_number"},
    {Kind::kProgramRelative, "program-relative", kWarning,
     "The path of the program, of its interpreter or of its loader is relative, so the "
     "directory in which the launcher is started decides which file it names.",
     "program_relative"},
    {Kind::kProgramRelativeUnusable, "program-relative-unusable", kError,
     "As program-relative; resolved from this directory, that file cannot be executed.",
     "program_tilde"},
    {Kind::kProgramMissing, "program-missing", kError, "The program does not exist.",
     "program_not_there"},
    {Kind::kProgramInaccessible, "program-inaccessible", kError,
     "The program cannot be examined, and for the same reason it cannot be executed.",
     "program_loop"},
    {Kind::kProgramNotRegular, "program-not-regular", kError,
     "The program is a directory, a device or another file that is not regular.",
     "program_directory"},
    {Kind::kProgramNotExecutable, "program-not-executable", kError,
     "The program lacks the permission to be executed.", "program_not_executable"},
    {Kind::kProgramEmpty, "program-empty", kError, "The program is an empty file.",
     "program_empty_file"},
    {Kind::kProgramFormat, "program-format", kError,
     "The program has no format that the system can execute.", "program_text"},
    {Kind::kProgramInterpreter, "program-interpreter", kError,
     "The interpreter or the loader that the program needs cannot be executed.",
     "program_interpreter_missing"},
    {Kind::kProgramForeign, "program-foreign", kWarning,
     "The program is built for another processor.", "program_foreign"},

    {Kind::kArgcType, "argc-type", kError,
     "\"argc\" is a string, an object, an array or a number beyond 64 bits.", "argc_string"},
    {Kind::kArgcUndefined, "argc-undefined", kError,
     "\"argc\" is below -1, which has undefined results.", "argc_minus_two"},
    {Kind::kArgcMinusOne, "argc-minus-one", kWarning,
     "\"argc\" is -1, which passes an empty argument vector.", "argc_minus_one"},
    {Kind::kArgcTooBig, "argc-too-big", kError,
     "\"argc\" is larger than what the stack of a supervisor is sure to hold.", "argc_too_big"},
    {Kind::kArgcValue, "argc-value", kWarning,
     "\"argc\" is not written as the integer that the launcher reads.", "argc_real"},
    {Kind::kArgsType, "args-type", kError,
     "\"args\" is neither an object nor null, while \"argc\" counts arguments.", "args_array"},
    {Kind::kArgsIgnored, "args-ignored", kWarning,
     "\"args\" is neither an object nor null, and \"argc\" counts no arguments.",
     "args_array_uncounted"},
    {Kind::kArgsMissing, "args-missing", kWarning,
     "\"argc\" counts arguments that \"args\" does not have.", "args_too_few"},
    {Kind::kArgsBeyondArgc, "args-beyond-argc", kWarning,
     "\"args\" has arguments that \"argc\" does not count.", "args_beyond_argc"},
    {Kind::kArgumentType, "argument-type", kError, "An argument is an object or an array.",
     "argument_object"},
    {Kind::kArgumentText, "argument-text", kWarning, "An argument is not passed as it is written.",
     "argument_null"},
    {Kind::kArgumentTooLong, "argument-too-long", kError,
     "One argument is longer than the system accepts.", "argument_too_long"},
    {Kind::kArgumentsTooLong, "arguments-too-long", kError,
     "The arguments together are longer than the system accepts.", "arguments_too_long"},
}};

}  // namespace

const std::array<KindInfo, kKindCount>& AllKinds()
{
    return kKinds;
}

const KindInfo& InfoOf(Kind kind)
{
    return kKinds[static_cast<std::size_t>(kind)];
}

}  // namespace launchlist
