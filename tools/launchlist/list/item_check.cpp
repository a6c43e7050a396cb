#include "tools/launchlist/list/item_check.h"

#include <algorithm>

#include "launcher/launch_item.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/argument_check.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/list/problems.h"

namespace launchlist {

namespace {

const std::vector<std::string>& KnownMembers()
{
    static const std::vector<std::string> kMembers = {"name", "program", "args", "argc"};
    return kMembers;
}

bool IsContainer(JsonType type)
{
    return type == JsonType::kArray || type == JsonType::kObject;
}

void CheckUnknown(ItemToCheck& item)
{
    for (const JsonMember& member : item.members) {
        const std::vector<std::string>& known = KnownMembers();
        if (std::find(known.begin(), known.end(), member.name) != known.end()) {
            continue;
        }
        const std::string meant = closest_word(member.name, known);
        item.Add(Kind::kUnknownMember, Stage::kReading, member.name_begin,
                 MemberPath(item.path, member.name), "unknown member " + quoted(member.name),
                 effects::kIgnored,
                 meant.empty() ? "remove it" : "if you mean \"" + meant + "\", write that");
    }
}

// Adds a warning if the text of member `name`, a string, contains a NUL.
void CheckTruncated(ItemToCheck& item, const JsonMember& member, Stage stage)
{
    if (member.value.type == JsonType::kString &&
        item.context.source.String(member.value).find('\0') != std::string::npos) {
        item.Add(Kind::kTruncatedString, stage, member.value.begin,
                 MemberPath(item.path, member.name), "the string contains a NUL character",
                 "the string is cut off there", "remove the \\u0000");
    }
}

void CheckName(ItemToCheck& item)
{
    const JsonMember* name = item.Find("name");
    if (name == nullptr) {
        item.Add(Kind::kNoName, Stage::kStart, item.offset, item.path, problems::kNoName,
                 effects::Skipped(), "add a \"name\"");
        return;
    }
    const std::size_t place = name->value.begin;
    const std::string pointer = MemberPath(item.path, "name");
    const JsonType type = name->value.type;
    if (IsContainer(type)) {
        item.Add(Kind::kNameType, Stage::kStart, place, pointer, problems::kNameType,
                 item.explained.effect, "write a string");
    } else if (type == JsonType::kNull || ItemName(item.item).empty()) {
        item.Add(Kind::kNameEmpty, Stage::kStart, place, pointer,
                 type == JsonType::kNull ? "\"name\" is null" : "\"name\" is empty",
                 "the log shows the item without a name", "write a name");
    } else if (type != JsonType::kString) {
        item.Add(Kind::kNameNotString, Stage::kStart, place, pointer, problems::kNameType,
                 "the item is called " + quoted(ItemName(item.item)), "write a string");
    }
    CheckTruncated(item, *name, Stage::kStart);
}

void CheckProgram(ItemToCheck& item)
{
    const JsonMember* program = item.Find("program");
    const auto add = [&](Kind kind, const std::string& message, const std::string& effect,
                         const std::string& fix) {
        item.Add(kind, Stage::kProgram, program != nullptr ? program->value.begin : item.offset,
                 program != nullptr ? MemberPath(item.path, "program") : item.path, message, effect,
                 fix);
    };
    if (program == nullptr) {
        add(Kind::kNoProgram, problems::kNoProgram, item.explained.effect,
            "add a \"program\" with an absolute path");
        return;
    }
    if (IsContainer(program->value.type)) {
        add(Kind::kProgramType, problems::kProgramType, effects::kAbortsLauncher,
            "write an absolute path");
        return;
    }
    const std::string path = ItemProgram(item.item);
    if (path.empty()) {
        add(Kind::kNoProgram,
            program->value.type == JsonType::kNull ? problems::kProgramIsNull
                                                   : problems::kProgramIsEmpty,
            item.explained.effect, "write an absolute path");
        return;
    }
    if (program->value.type != JsonType::kString) {
        add(Kind::kProgramNotString, problems::kProgramType, "the path is " + quoted(path),
            "write an absolute path");
    }
    CheckTruncated(item, *program, Stage::kProgram);
    const ProgramFile& file = item.context.files.Examine(path);
    if (file.problem) {
        item.Add(*file.problem, Stage::kExecution, program->value.begin,
                 MemberPath(item.path, "program"), file.message, effects::ProgramProblem(file),
                 file.fix);
    }
}

// The member with the mistake that the launcher runs into before `stage`; "" if there is none.
std::string EarlierMistake(const ExplainedItem& item, Stage stage)
{
    switch (item.outcome) {
        case ItemOutcome::kAbortsLauncher:
        case ItemOutcome::kSignalsGroup:
            return stage > Stage::kProgram ? "program" : "";
        case ItemOutcome::kOverrunsStack:
            return stage > Stage::kCount ? "argc" : "";
        case ItemOutcome::kAbortsChild:
            if (item.is_problem_in_args) {
                return stage > Stage::kArguments ? "args" : "";
            }
            return stage > Stage::kCount ? "argc" : "";
        default:
            return "";
    }
}

}  // namespace

const JsonMember* ItemToCheck::Find(const std::string& name) const
{
    const auto matches = [&](const JsonMember& member) {
        return member.name == name && !member.replaced;
    };
    const auto found = std::find_if(members.begin(), members.end(), matches);
    return found != members.end() ? &*found : nullptr;
}

void ItemToCheck::Add(Kind kind, Stage stage, std::size_t place, const std::string& pointer,
                      const std::string& message, const std::string& effect, const std::string& fix)
{
    std::string replacement;
    if (stage >= Stage::kStart) {
        replacement = effect_if_unreached;
    }
    if (stage > Stage::kStart && replacement.empty()) {
        replacement = effect_if_not_started;
    }
    const bool is_started = replacement.empty();
    const std::string earlier = EarlierMistake(explained, stage);
    if (is_started && !earlier.empty()) {
        replacement = effects::HiddenBy(earlier);
    }
    context.findings.Add(
        {kind, place, pointer, message, replacement.empty() ? effect : replacement, fix},
        is_started);
}

void CheckItem(ItemToCheck& item, JsonType type)
{
    constexpr char kWriteObject[] = "write an object with \"name\" and \"program\"";
    if (type == JsonType::kNull) {
        item.Add(Kind::kNoName, Stage::kStart, item.offset, item.path, problems::kItemIsNull,
                 effects::Skipped(), kWriteObject);
        return;
    }
    if (type != JsonType::kObject) {
        item.Add(Kind::kItemType, Stage::kStart, item.offset, item.path, problems::kItemType,
                 item.explained.effect, kWriteObject);
        return;
    }
    CheckReplaced(item.members, item.path, item.context);
    CheckUnknown(item);
    CheckName(item);
    CheckProgram(item);
    CheckArguments(item);
}

}  // namespace launchlist
