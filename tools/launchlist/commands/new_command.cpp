#include <algorithm>
#include <memory>

#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/commands/commands.h"
#include "tools/launchlist/list/argument_vector.h"
#include "tools/launchlist/list/check.h"
#include "tools/launchlist/list/check_context.h"
#include "tools/launchlist/list/new_item.h"
#include "tools/launchlist/output/list_output.h"

namespace launchlist {

namespace {

constexpr char kInto[] = "--into";

struct NewOptions
{
    NewItem item;
    std::string list;
};

// Reports on standard error the findings that concern the item, or that may keep it from running:
// those in the item, which has this JSON pointer, and all errors.
int ReportFindings(const std::string& list, const std::string& bytes, const std::string& pointer)
{
    const Findings findings = CheckList(bytes);
    Findings reported;
    for (const Finding& finding : findings.shown) {
        const bool is_in_item = finding.path == pointer ||
                                finding.path.compare(0, pointer.size() + 1, pointer + "/") == 0;
        if (is_in_item || finding.severity == Severity::kError) {
            reported.Add(finding, finding.severity == InfoOf(finding.kind).severity);
        }
    }
    if (!reported.shown.empty()) {
        std::fprintf(stderr, "%s", FindingsText(list, reported, false).c_str());
    }
    return StatusOf(reported);
}

int PrintItem(const NewItem& item)
{
    const std::string text = ItemText(item);
    const int status = Print(text + "\n", kSuccess);
    return status != kSuccess ? status : ReportFindings(item.name, "{\"0\":" + text + "}", "/0");
}

int AppendTo(const std::string& path, const NewItem& item)
{
    std::string bytes;
    std::string error;
    if (!ReadFile(path, bytes, error)) {
        return ReportFailure(path, error);
    }
    const std::optional<Appended> appended = AppendItem(bytes, item);
    if (!appended) {
        std::fprintf(stderr, "%s: no item was added: the list must be a well-formed JSON object\n",
                     printable(path).c_str());
        std::fprintf(stderr, "%s", FindingsText(path, CheckList(bytes), false).c_str());
        return kErrors;
    }
    const std::string result = Apply(appended->edits, bytes);
    if (!ReplaceContents(path, bytes, result, error)) {
        return ReportFailure(path, error);
    }
    const int status =
        Print(printable(path) + ": added item \"" + appended->number + "\"\n", kSuccess);
    return std::max(status, ReportFindings(path, result, MemberPath("", appended->number)));
}

void CheckText(const char* name, const std::string& text)
{
    if (!is_utf8(text)) {
        throw CLI::ValidationError(name, quoted(text) + " is not UTF-8");
    }
}

void CheckItem(const NewItem& item)
{
    CheckText("NAME", item.name);
    CheckText("PROGRAM", item.program);
    for (const std::string& argument : item.arguments) {
        CheckText("ARG", argument);
    }
    if (item.name.empty() || item.program.empty()) {
        throw CLI::ValidationError(item.name.empty() ? "NAME" : "PROGRAM", "must not be empty");
    }
    if (item.arguments.size() > static_cast<std::size_t>(kMaxArgumentCount)) {
        throw CLI::ValidationError(
            "ARG", "at most " + std::to_string(kMaxArgumentCount) + " arguments can be passed");
    }
}

}  // namespace

Command AddNewCommand(CLI::App& app)
{
    CLI::App* parser =
        app.add_subcommand("new", "Write an item that runs a program with its arguments.");
    parser->positionals_at_end();
    const auto options = std::make_shared<NewOptions>();
    parser->add_option(kInto, options->list, "Append the item to LIST instead of printing it")
        ->type_name("LIST");
    parser->add_option("NAME", options->item.name, "The name of the item")->required();
    parser->add_option("PROGRAM", options->item.program, "The path of the program")->required();
    parser->add_option("ARG", options->item.arguments, "The arguments of the program");
    parser->callback([options] { CheckItem(options->item); });
    parser->footer(
        "Options precede NAME: everything after PROGRAM is an argument, even if it begins with -.\n"
        "Exit status: 0 no mistakes, 1 warnings only, 2 errors that may keep the item from\n"
        "running, or LIST is not a JSON object, 3 LIST cannot be read or written.\n"
        "Example:\n"
        "  launchlist new --into helpers.json sync-agent /usr/local/libexec/sync-agent --mode x");
    return {parser, [options] {
                return options->list.empty() ? PrintItem(options->item)
                                             : AppendTo(options->list, options->item);
            }};
}

std::vector<std::string> ArgumentsForParser(int argc, char** argv)
{
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    if (!arguments.empty() && arguments[0] == "new") {
        std::size_t at = 1;
        while (at < arguments.size() && arguments[at].size() > 1 && arguments[at][0] == '-' &&
               arguments[at] != "--") {
            at += arguments[at] == kInto ? 2 : 1;
        }
        if (at < arguments.size() && arguments[at] != "--") {
            arguments.insert(arguments.begin() + static_cast<std::ptrdiff_t>(at), "--");
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

}  // namespace launchlist
