#include "tools/launchlist/output/list_output.h"

#include <signal.h>

#include <algorithm>

#include "launcher/launch_item.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/json_output.h"
#include "tools/launchlist/output/terminal_style.h"

namespace launchlist {

namespace {

// A list of a few kilobytes can count gigabytes of arguments. Text shows more than kMaxRow
// consecutive missing ones as one, with their number. Once JSON contains kMaxArguments, it omits
// the arguments of items that have more than kMaxRow.
constexpr std::size_t kMaxRow = 100;
constexpr std::size_t kMaxArguments = 200'000;

Style StyleOf(Severity severity)
{
    return severity == Severity::kError ? Style::kRed : Style::kYellow;
}

std::string FindingText(const std::string& list, const Finding& finding, bool color)
{
    const std::string place = printable(list) + ":" + std::to_string(finding.line) + ":" +
                              std::to_string(finding.column) + ":";
    const std::string severity = std::string(NameOf(finding.severity)) + ":";
    std::string text = styled(place, Style::kBold, color) + " " +
                       styled(severity, StyleOf(finding.severity), color) + " ";
    if (!finding.path.empty()) {
        text += printable(finding.path) + ": ";
    }
    text += styled(printable(finding.message), Style::kBold, color) + "\n";
    text += "    " + styled("effect:", Style::kDim, color) + " " + printable(finding.effect) + "\n";
    text += "    " + styled("fix:", Style::kDim, color) + " " + printable(finding.fix) + "\n";
    return text;
}

JsonObject FindingObject(const Finding& finding)
{
    JsonObject object = JsonObject::GetEmptyObject();
    PutText(object, "severity", NameOf(finding.severity));
    PutText(object, "kind", InfoOf(finding.kind).name);
    PutNumber(object, "line", finding.line);
    PutNumber(object, "column", finding.column);
    PutText(object, "path", finding.path);
    PutText(object, "message", finding.message);
    PutText(object, "effect", finding.effect);
    PutText(object, "fix", finding.fix);
    return object;
}

JsonObject NotShownList(const Findings& findings)
{
    JsonObject kinds = EmptyList();
    for (const auto& [kind, count] : findings.not_shown) {
        JsonObject object = JsonObject::GetEmptyObject();
        PutText(object, "kind", InfoOf(kind).name);
        PutNumber(object, "count", count);
        kinds.InsertArrayItem(object);
    }
    return kinds;
}

JsonObject ListObject(const CheckedList& list)
{
    JsonObject object = JsonObject::GetEmptyObject();
    PutText(object, "list", list.name);
    if (!list.error.empty()) {
        PutText(object, "error", list.error);
        return object;
    }
    JsonObject findings = EmptyList();
    for (const Finding& finding : list.findings.shown) {
        JsonObject element = FindingObject(finding);
        findings.InsertArrayItem(element);
    }
    PutNumber(object, "errors", list.findings.errors);
    PutNumber(object, "warnings", list.findings.warnings);
    PutValue(object, "findings", findings);
    PutValue(object, "not_shown", NotShownList(list.findings));
    return object;
}

// One argument vector as a line for a shell. Rows of more than `max_row` missing arguments are
// abbreviated.
std::string CommandLine(const ArgumentVector& arguments, std::size_t max_row)
{
    std::string line;
    for (const ArgumentRun& run : arguments) {
        const std::string word = shell_word(run.text);
        for (std::size_t i = 0; i < (run.count > max_row ? 1 : run.count); ++i) {
            line += (line.empty() ? "" : " ") + word;
        }
        line += run.count > max_row ? " (" + std::to_string(run.count) + " times)" : "";
    }
    return line;
}

std::string ItemText(const ExplainedItem& item, bool color)
{
    const auto row = [color](const char* label, const std::string& value) {
        return "    " + styled(pad_right(label, 10), Style::kDim, color) + value + "\n";
    };
    std::string text = styled("item " + std::to_string(item.index), Style::kBold, color);
    text += item.name ? "  " + styled(quoted(*item.name), Style::kCyan, color) + "\n" : "\n";
    if (item.replaces) {
        text += row("replaces", "item " + std::to_string(*item.replaces) + ", which ends");
    }
    if (item.replaced_by) {
        text += row("replaced", "by item " + std::to_string(*item.replaced_by));
    }
    if (item.program && !item.program->empty()) {
        text += row("program", shell_word(*item.program));
    }
    if (item.arguments) {
        text += row("arguments", item.arguments->empty() ? "(empty vector)"
                                                         : CommandLine(*item.arguments, kMaxRow));
    }
    if (!item.problem.empty()) {
        text += row("problem", printable(item.problem));
    }
    if (!item.effect.empty()) {
        text += row("effect", printable(item.effect));
    }
    if (!item.note.empty()) {
        text += row("note", printable(item.note));
    }
    return text;
}

const char* NameOf(ItemOutcome outcome)
{
    switch (outcome) {
        case ItemOutcome::kRejected:
            return "rejected";
        case ItemOutcome::kSkipped:
            return "skipped";
        case ItemOutcome::kAbortsLauncher:
            return "aborts-launcher";
        case ItemOutcome::kSignalsGroup:
            return "signals-group";
        case ItemOutcome::kAbortsChild:
            return "aborts-child";
        case ItemOutcome::kUndefined:
            return "undefined";
        case ItemOutcome::kOverrunsStack:
            return "overruns-stack";
        case ItemOutcome::kMayOverrunStack:
            return "may-overrun-stack";
        case ItemOutcome::kCannotExecute:
            return "cannot-execute";
        case ItemOutcome::kRuns:
            break;
    }
    return "runs";
}

const char* NameOf(Likelihood runs)
{
    return runs == Likelihood::kCertainly  ? "yes"
           : runs == Likelihood::kPossibly ? "possibly"
                                           : "no";
}

const char* NameOf(Condition condition)
{
    switch (condition) {
        case Condition::kTiming:
            return "timing";
        case Condition::kMacOs:
            return "macos";
        case Condition::kProcessLimit:
            return "process-limit";
        case Condition::kAlways:
            break;
    }
    return "none";
}

// `room` is how many more arguments the output may hold.
void PutArguments(JsonObject& object, const ArgumentVector& arguments, std::size_t& room)
{
    const std::size_t count = CountOf(arguments);
    if (count > std::max(room, kMaxRow)) {
        PutNumber(object, "argument_count", count);
        return;
    }
    room -= std::min(room, count);
    JsonObject array = EmptyList();
    for (const ArgumentRun& run : arguments) {
        for (std::size_t i = 0; i < run.count; ++i) {
            array.InsertArrayItem(run.text);
        }
    }
    PutValue(object, "arguments", array);
    PutText(object, "command", CommandLine(arguments, count));
}

JsonObject ItemObject(const ExplainedItem& item, std::size_t& room)
{
    JsonObject object = JsonObject::GetEmptyObject();
    PutNumber(object, "index", item.index);
    PutText(object, "fate", NameOf(item.outcome));
    PutText(object, "runs", NameOf(item.runs));
    if (item.name) {
        PutText(object, "name", *item.name);
    }
    if (item.program) {
        PutText(object, "program", *item.program);
    }
    if (item.arguments) {
        PutArguments(object, *item.arguments, room);
    }
    if (item.replaces) {
        PutNumber(object, "replaces", *item.replaces);
    }
    if (item.replaced_by) {
        PutNumber(object, "replaced_by", *item.replaced_by);
    }
    for (const auto& [key, text] :
         {std::pair<const char*, const std::string&>("problem", item.problem),
          {"effect", item.effect},
          {"note", item.note}}) {
        if (!text.empty()) {
            PutText(object, key, text);
        }
    }
    return object;
}

JsonObject OutcomeObject(const LauncherOutcome& outcome)
{
    JsonObject object = JsonObject::GetEmptyObject();
    PutText(object, "condition", NameOf(outcome.condition));
    switch (outcome.outcome) {
        case Outcome::kKeepsRunning:
            PutText(object, "outcome", "keeps-running");
            break;
        case Outcome::kExits:
            PutText(object, "outcome", "exits");
            PutNumber(object, "exit_status", 0);
            break;
        case Outcome::kAborts:
            PutText(object, "outcome", "aborts");
            PutNumber(object, "signal", SIGABRT);
            break;
        case Outcome::kGroupKilled:
            PutText(object, "outcome", "process-group-killed");
            PutNumber(object, "signal", SIGKILL);
            break;
        case Outcome::kUserKilled:
            PutText(object, "outcome", "all-processes-killed");
            PutNumber(object, "signal", SIGKILL);
            break;
    }
    return object;
}

// Where the launcher stops reading the list.
std::string EndOfList(const Explanation& explanation)
{
    if (!explanation.list_effect.empty()) {
        return explanation.list_effect;
    }
    if (explanation.is_rejected) {
        return "No items after item " + std::to_string(explanation.items.back().index) +
               " are read";
    }
    return "End of list (no item \"" + ItemKey(static_cast<int>(explanation.items.size())) + "\")";
}

std::string OutcomesText(const LauncherOutcomes& outcomes)
{
    if (outcomes.size() == 1) {
        return "The launcher " + TextOf(outcomes.front().outcome) + ".\n";
    }
    std::string text = "The launcher does one of the following:\n";
    for (const LauncherOutcome& outcome : outcomes) {
        const std::string condition = TextOf(outcome.condition);
        text += "    - " + TextOf(outcome.outcome) +
                (condition.empty() ? "" : " (" + condition + ")") + "\n";
    }
    return text;
}

}  // namespace

const char* NameOf(Severity severity)
{
    return severity == Severity::kError ? "error" : "warning";
}

std::string FindingsText(const std::string& list, const Findings& findings, bool color)
{
    std::string text;
    for (const Finding& finding : findings.shown) {
        text += FindingText(list, finding, color);
    }
    for (const auto& [kind, count] : findings.not_shown) {
        text += printable(list) + ": " + std::to_string(count) + " more of the kind " +
                InfoOf(kind).name + "\n";
    }
    const bool is_good = findings.errors + findings.warnings == 0;
    return text + printable(list) + ": " +
           (is_good ? "no mistakes"
                    : counted(findings.errors, "error") + ", " +
                          counted(findings.warnings, "warning")) +
           "\n";
}

std::string FindingsJson(const std::vector<CheckedList>& lists)
{
    JsonObject array = EmptyList();
    for (const CheckedList& list : lists) {
        JsonObject object = ListObject(list);
        array.InsertArrayItem(object);
    }
    JsonObject result = JsonObject::GetEmptyObject();
    PutNumber(result, "format_version", kListFormatVersion);
    PutValue(result, "lists", array);
    return Serialized(result);
}

std::string ExplanationText(const Explanation& explanation, bool color)
{
    std::string text;
    for (const ExplainedItem& item : explanation.items) {
        text += ItemText(item, color);
    }
    text += EndOfList(explanation) + "\n";
    // The effect on a rejected list includes the outcome.
    return explanation.list_effect.empty() ? text + OutcomesText(explanation.outcomes) : text;
}

std::string ExplanationJson(const std::string& list, const Explanation& explanation)
{
    JsonObject items = EmptyList();
    std::size_t room = kMaxArguments;
    for (const ExplainedItem& item : explanation.items) {
        JsonObject object = ItemObject(item, room);
        items.InsertArrayItem(object);
    }
    JsonObject outcomes = EmptyList();
    for (const LauncherOutcome& outcome : explanation.outcomes) {
        JsonObject object = OutcomeObject(outcome);
        outcomes.InsertArrayItem(object);
    }
    JsonObject result = JsonObject::GetEmptyObject();
    PutNumber(result, "format_version", kListFormatVersion);
    PutText(result, "list", list);
    PutValue(result, "items", items);
    PutText(result, "end", EndOfList(explanation));
    PutText(result, "launcher_ends",
            EndsCertainly(explanation.outcomes)  ? "yes"
            : EndsPossibly(explanation.outcomes) ? "possibly"
                                                 : "no");
    PutValue(result, "outcomes", outcomes);
    return Serialized(result);
}

}  // namespace launchlist
