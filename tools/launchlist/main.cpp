// launchlist: tells what a launch list does before it runs, and what happened after.
//
//     launchlist check LIST | explain LIST | report [LOG...]

#include <locale.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/launchlist/check.h"
#include "tools/launchlist/explain.h"
#include "tools/launchlist/files.h"
#include "tools/launchlist/output.h"
#include "tools/launchlist/text.h"

namespace {

using namespace launchlist;

// Exit statuses.
constexpr int kNothing = 0;
constexpr int kWarnings = 1;
constexpr int kErrors = 2;
constexpr int kUnreadable = 3;
constexpr int kUsage = 64;

// Whether to use colour on standard output: on a terminal, unless NO_COLOR asks for none.
bool UseColor()
{
    const char* no_color = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (no_color == nullptr || *no_color == '\0');
}

// Prints `text`, all of which is printable. A reader that has gone is no failure of ours.
void Print(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stdout);
}

int CannotRead(const std::string& path, const std::string& error)
{
    std::fprintf(stderr, "launchlist: %s: %s\n", printable(path).c_str(), error.c_str());
    return kUnreadable;
}

int Check(const std::string& path, bool json)
{
    std::string bytes;
    std::string error;
    if (!ReadFile(path, bytes, error)) {
        return CannotRead(path, error);
    }
    const Findings findings = CheckList(bytes);
    Print(json ? FindingsJson(path, findings) : FindingsText(path, findings, UseColor()));
    const Counts counts = CountFindings(findings);
    return counts.errors > 0 ? kErrors : counts.warnings > 0 ? kWarnings : kNothing;
}

int Explain(const std::string& path, bool json)
{
    std::string bytes;
    std::string error;
    if (!ReadFile(path, bytes, error)) {
        return CannotRead(path, error);
    }
    const Walk walk = ExplainList(bytes);
    Print(json ? WalkJson(path, walk) : WalkText(walk, UseColor()));
    return walk.ends_launcher ? kErrors : kNothing;
}

int Run(int argc, char** argv)
{
    CLI::App app("Tells what a launch list does before it runs, and what happened after.");
    app.name("launchlist");
    app.require_subcommand(1);
    app.footer("Example:\n  launchlist check helpers.json && launchlist explain helpers.json");
    std::string list;
    bool json = false;

    CLI::App* check = app.add_subcommand("check", "Name every mistake of a launch list.");
    check->add_option("LIST", list, "The launch list")->required();
    check->add_flag("--json", json, "Print JSON, for programs");
    check->footer(
        "Exit status: 0 no mistake, 1 warnings only, 2 errors, 3 the list cannot be read.\n"
        "Example:\n  launchlist check helpers.json");

    CLI::App* explain = app.add_subcommand("explain", "Show what the launcher makes of each item.");
    explain->add_option("LIST", list, "The launch list")->required();
    explain->add_flag("--json", json, "Print JSON, for programs");
    explain->footer(
        "Exit status: 0 the launcher would wait for its end, 2 it would end by itself, 3 the list\n"
        "cannot be read.\n"
        "Example:\n  launchlist explain helpers.json");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kNothing : kUsage;
    }
    return check->parsed() ? Check(list, json) : Explain(list, json);
}

}  // namespace

int main(int argc, char** argv)
{
    // Only for the width of characters; numbers and messages stay as they are.
    if (setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
        setlocale(LC_CTYPE, "UTF-8");
    }
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "launchlist: %s\n", error.what());
        return kUnreadable;
    }
}
