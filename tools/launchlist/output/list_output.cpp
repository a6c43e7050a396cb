#include "tools/launchlist/output/list_output.h"

#include <algorithm>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/json_output.h"
#include "tools/launchlist/output/terminal_style.h"

namespace launchlist {

namespace {

const char* NameOf(Severity severity)
{
    return severity == Severity::kError ? "error" : "warning";
}

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
    text += "    " + styled("then:", Style::kDim, color) + " " + printable(finding.effect) + "\n";
    text += "    " + styled("mend:", Style::kDim, color) + " " + printable(finding.remedy) + "\n";
    return text;
}

JsonObject FindingObject(const Finding& finding)
{
    JsonObject object = JsonObject::GetEmptyObject();
    PutText(object, "severity", NameOf(finding.severity));
    PutText(object, "kind", finding.kind);
    PutNumber(object, "line", finding.line);
    PutNumber(object, "column", finding.column);
    PutText(object, "path", finding.path);
    PutText(object, "message", finding.message);
    PutText(object, "effect", finding.effect);
    PutText(object, "remedy", finding.remedy);
    return object;
}

// One argument vector as a line for a shell.
std::string CommandLine(const std::vector<std::string>& arguments)
{
    std::string line;
    for (const std::string& argument : arguments) {
        line += (line.empty() ? "" : " ") + shell_word(argument);
    }
    return line;
}

std::string StepText(const Step& step, bool color)
{
    const auto row = [color](const char* label, const std::string& value) {
        return "    " + styled(pad_right(label, 10), Style::kDim, color) + value + "\n";
    };
    std::string text = styled("item " + std::to_string(step.index), Style::kBold, color);
    text += step.name ? "  " + styled(quoted(*step.name), Style::kCyan, color) + "\n" : "\n";
    if (step.replaced) {
        text += row("first", "ends item " + std::to_string(*step.replaced) + " of the same name");
    }
    if (step.program) {
        text += row("program", shell_word(*step.program));
    }
    if (step.arguments && !step.arguments->empty()) {
        text += row("arguments", CommandLine(*step.arguments));
    } else if (step.arguments) {
        text += row("arguments", "none at all");
    }
    if (!step.note.empty()) {
        text += row(step.arguments ? "note" : "but", step.note);
    }
    return text;
}

JsonObject StepObject(const Step& step)
{
    JsonObject object = JsonObject::GetEmptyObject();
    PutNumber(object, "index", step.index);
    if (step.name) {
        PutText(object, "name", *step.name);
    }
    if (step.program) {
        PutText(object, "program", *step.program);
    }
    if (step.arguments) {
        JsonObject arguments = EmptyList();
        for (const std::string& argument : *step.arguments) {
            arguments.InsertArrayItem(argument);
        }
        PutValue(object, "arguments", arguments);
        PutText(object, "command", CommandLine(*step.arguments));
    }
    if (step.replaced) {
        PutNumber(object, "ends_item", *step.replaced);
    }
    if (!step.note.empty()) {
        PutText(object, "note", step.note);
    }
    return object;
}

}  // namespace

Counts CountFindings(const Findings& findings)
{
    Counts counts;
    for (const Finding& finding : findings) {
        ++(finding.severity == Severity::kError ? counts.errors : counts.warnings);
    }
    return counts;
}

std::string FindingsText(const std::string& list, const Findings& findings, bool color)
{
    std::string text;
    for (const Finding& finding : findings) {
        text += FindingText(list, finding, color);
    }
    const Counts counts = CountFindings(findings);
    return text + printable(list) + ": " +
           (findings.empty()
                ? "no mistakes"
                : counted(counts.errors, "error") + ", " + counted(counts.warnings, "warning")) +
           "\n";
}

std::string FindingsJson(const std::string& list, const Findings& findings)
{
    const Counts counts = CountFindings(findings);
    JsonObject array = EmptyList();
    for (const Finding& finding : findings) {
        JsonObject object = FindingObject(finding);
        array.InsertArrayItem(object);
    }
    JsonObject result = JsonObject::GetEmptyObject();
    PutText(result, "list", list);
    PutNumber(result, "errors", counts.errors);
    PutNumber(result, "warnings", counts.warnings);
    PutValue(result, "findings", array);
    return Finished(result);
}

std::string WalkText(const Walk& walk, bool color)
{
    std::string text;
    for (const Step& step : walk.steps) {
        text += StepText(step, color);
    }
    return text + walk.end + "\n";
}

std::string WalkJson(const std::string& list, const Walk& walk)
{
    JsonObject steps = EmptyList();
    for (const Step& step : walk.steps) {
        JsonObject object = StepObject(step);
        steps.InsertArrayItem(object);
    }
    JsonObject result = JsonObject::GetEmptyObject();
    PutText(result, "list", list);
    PutValue(result, "items", steps);
    PutText(result, "end", walk.end);
    PutTruth(result, "launcher_ends", walk.ends_launcher);
    return Finished(result);
}

}  // namespace launchlist
