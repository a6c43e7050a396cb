// Every list in lists/ contains one mistake, several or none; the file of the same name that ends
// in .expected has what `check` prints about it. docs/finding-kinds.md shows one list for each
// kind.
//
// KESTRANE_RENEW=1 rewrites the expected files and the page: read the difference before you commit
// it. In a list, @PROGRAMS@ stands for a directory of programs that cannot be executed, @LONG@ for
// an argument beyond the limit of Linux, and @MANY@ for arguments whose total length is beyond it.
#include "tools/launchlist/list/check.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "json/json_object.h"
#include "json/json_source.h"
#include "tests/support/next_descriptor.h"
#include "tests/support/temp_directory.h"
#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/output/list_output.h"

using namespace launchlist;

namespace {

const std::string kLists = KESTRANE_LISTS;

bool Renews()
{
    return std::getenv("KESTRANE_RENEW") != nullptr;
}

std::string Read(const std::string& path)
{
    std::string bytes;
    std::string error;
    EXPECT_TRUE(ReadFile(path, bytes, error)) << path << ": " << error;
    return bytes;
}

void Replace(std::string& text, const std::string& from, const std::string& to)
{
    for (std::size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

// The directory of programs, which is also the current directory and PATH of this test.
class Programs
{
public:
    Programs()
    {
        Add("helper", "#!/bin/sh\n");
        Add("empty", "");
        Add("text", "echo started\n");
        Add("interpreter_missing", "#!/nowhere/sh -e\n");
        Add("interpreter_crlf", "#!/bin/sh\r\nexit\r\n");
        Add("interpreter_none", "#!\n");
        Add("damaged",
            "\x7f"
            "ELF");
        std::string foreign(
            "\x7f"
            "ELF\2\1\1",
            7);
        foreign.resize(64);
        foreign[16] = 2;   // An executable
        foreign[18] = 22;  // for a mainframe.
        Add("foreign", foreign);
        std::string script = m_directory / "helper";
        for (int i = 0; i < 7; ++i) {
            const std::string name = i == 6 ? "nested" : "nested" + std::to_string(i);
            Add(name, "#!" + script + "\n");
            script = m_directory / name;
        }
        EXPECT_EQ(symlink("loop", (m_directory / "loop").c_str()), 0);
        EXPECT_EQ(chdir(m_directory.path().c_str()), 0);
        setenv("PATH", m_directory.path().c_str(), 1);
        // On some systems, the limit of the arguments depends on that of the stack.
        rlimit limit = {};
        getrlimit(RLIMIT_STACK, &limit);
        limit.rlim_cur = 8UL * 1024 * 1024;
        EXPECT_EQ(setrlimit(RLIMIT_STACK, &limit), 0);
    }

    std::string path() const { return m_directory.path(); }

private:
    void Add(const std::string& name, const std::string& contents)
    {
        EXPECT_EQ(chmod(m_directory.Write(name, contents).c_str(), 0755), 0);
    }

    TempDirectory m_directory;
};

const Programs& ThePrograms()
{
    static const Programs programs;
    return programs;
}

// The file names of the lists, without their ending, in order.
std::vector<std::string> Lists()
{
    std::vector<std::string> names;
    DIR* directory = opendir(kLists.c_str());
    while (const dirent* entry = directory != nullptr ? readdir(directory) : nullptr) {
        const std::string name = entry->d_name;
        if (name.size() > 5 && name.substr(name.size() - 5) == ".json") {
            names.push_back(name.substr(0, name.size() - 5));
        }
    }
    closedir(directory);
    std::sort(names.begin(), names.end());
    return names;
}

std::string PathOf(const std::string& name, const std::string& ending)
{
    return std::string(kLists).append("/").append(name).append(ending);
}

std::string Contents(const std::string& name)
{
    std::string bytes = Read(PathOf(name, ".json"));
    Replace(bytes, "@PROGRAMS@", ThePrograms().path());
    Replace(bytes, "@LONG@", std::string(131072, 'x'));
    std::string many;
    for (int i = 0; i < 20; ++i) {
        many += (i == 0 ? "\"" : ", \"") + std::to_string(i) + "\": \"" + std::string(120000, 'x') +
                "\"";
    }
    Replace(bytes, "@MANY@", many);
    return bytes;
}

// Whether the list shows a limit of Linux.
bool IsForLinux(const std::string& name)
{
    return name == "argument_too_long" || name == "arguments_too_long" ||
           name == "program_foreign" || name == "program_damaged" ||
           name == "program_interpreter_nested";
}

#ifdef __linux__
constexpr bool kOnLinux = true;
#else
constexpr bool kOnLinux = false;
#endif

// Writes the reader's depth limit as {DEPTH+0}, because it depends on the version of jsoncpp.
void HideDepthLimit(std::string& text)
{
    const std::size_t limit = JsonSource(std::string(10'000, '[')).Fault()->depth_limit;
    for (const std::size_t n : {5U, 0U}) {
        Replace(text, std::to_string(limit + n), "{DEPTH+" + std::to_string(n) + "}");
    }
}

// Whether the system's registrations can be read differs; program_file_test.cpp tests both cases.
void HideRegistrations(std::string& text)
{
    Replace(text, effects::kUnlessRegistered, "");
}

// What `check` prints about a list, with the directory of programs as @PROGRAMS@.
std::string Printed(const std::string& name)
{
    std::string text = FindingsText(name + ".json", CheckList(Contents(name)), false);
    Replace(text, ThePrograms().path(), "@PROGRAMS@");
    HideRegistrations(text);
    if (name == "too_deep") {
        HideDepthLimit(text);
    }
    return text;
}

bool JsonObjectTakes(const std::string& text)
{
    try {
        JsonObject document(text.c_str(), static_cast<unsigned int>(text.size()));
        return true;
    } catch (...) {
        return false;
    }
}

// Not with every version of jsoncpp.
bool ReaderAcceptsLineEndsInStrings()
{
    return JsonObjectTakes("[\"\n\"]");
}

bool CanBeChecked(const std::string& name)
{
    return (kOnLinux || !IsForLinux(name)) &&
           (name != "string_over_lines" || ReaderAcceptsLineEndsInStrings());
}

// Compares `text` with the file at `path`, or writes it there.
void ExpectKept(const std::string& path, const std::string& text)
{
    if (Renews()) {
        std::ofstream(path, std::ios::binary) << text;
    }
    EXPECT_EQ(Read(path), text) << path;
}

// Checks what must hold for any bytes.
void ExpectSound(const std::string& bytes)
{
    const std::string text = bytes.substr(0, bytes.find('\0'));
    EXPECT_EQ(JsonObjectTakes(text), !JsonSource(text).Fault()) << printable(text);
    const Findings findings = CheckList(bytes);
    const Explanation explanation = ExplainList(bytes);
    EXPECT_TRUE(!EndsPossibly(explanation.outcomes) || findings.errors > 0) << printable(text);
    for (const ExplainedItem& item : explanation.items) {
        EXPECT_TRUE(item.runs != Likelihood::kNever || findings.errors > 0) << printable(text);
    }
    for (const std::string& output :
         {FindingsText("x", findings, false), FindingsJson({{"x", "", findings}}),
          ExplanationText(explanation, false), ExplanationJson("x", explanation)}) {
        EXPECT_TRUE(is_utf8(output)) << printable(text);
        for (const char c : output) {
            EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 || c == '\n') << printable(output);
        }
    }
}

// The part of docs/finding-kinds.md about one kind.
std::string PageSection(const KindInfo& info)
{
    std::string section = std::string("\n## ") + info.name + "\n\n" +
                          (info.severity == Severity::kError ? "Error. " : "Warning. ") +
                          info.meaning + "\n\n";
    const std::string list = Read(PathOf(info.example, ".json"));
    if (!list.empty() && list.size() < 400 && is_utf8(list) &&
        list.find('\0') == std::string::npos) {
        section += "```json\n" + list + (list.back() == '\n' ? "" : "\n") + "```\n\n";
    }
    section += "```\n";
    Findings findings;
    for (const Finding& finding : CheckList(Contents(info.example)).shown) {
        if (finding.kind == info.kind && findings.shown.empty()) {
            findings.Add(finding);
            findings.shown[0].line = finding.line;
        }
    }
    EXPECT_EQ(findings.shown.size(), 1U) << info.example << " is not an example of " << info.name;
    std::string text = FindingsText("list.json", findings, false);
    if (info.kind == Kind::kTooDeep) {  // The page shows the limit of most versions of jsoncpp.
        HideDepthLimit(text);
        Replace(text, "{DEPTH+5}", "1005");
        Replace(text, "{DEPTH+0}", "1000");
    }
    section += text.substr(0, text.rfind("list.json: "));
    section += "```\n";
    HideRegistrations(section);
    Replace(section, ThePrograms().path(), "/opt/example");
    Replace(section, "@PROGRAMS@", "/opt/example");
    return section;
}

std::string Page()
{
    std::string page =
        "# Findings of launchlist check\n"
        "\n"
        "Generated from `tools/launchlist/list/finding_kinds.cpp`; a test compares them. The kind "
        "is\n"
        "the member `kind` of what `launchlist check --json` prints.\n"
        "\n"
        "An error means that the launcher ends, that a process group is signalled, or that an "
        "item\n"
        "never runs; its effect names the condition if there is one. A mistake in an item that is\n"
        "never started is always reported as a warning.\n"
        "\n"
        "| Kind | Severity | Meaning |\n"
        "|---|---|---|\n";
    for (const KindInfo& info : AllKinds()) {
        page += std::string("| [`") + info.name + "`](#" + info.name + ") | " +
                NameOf(info.severity) + " | " + info.meaning + " |\n";
    }
    for (const KindInfo& info : AllKinds()) {
        page += PageSection(info);
    }
    return page;
}

// A list with `count` items that differ in name.
std::string ListOfItems(int count, const std::string& more)
{
    std::string list = "{";
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        list += (i == 0 ? "\"" : ",\n\"") + number + "\": {\"name\": \"item " + number +
                "\", \"program\": \"/bin/sh\"" + more + "}";
    }
    return list + "}";
}

}  // namespace

TEST(Lists, AreMoreThanAHundred)
{
    EXPECT_GT(Lists().size(), 100U);
}

TEST(Lists, AreClosedAfterReading)
{
    Contents("good");
    const int before = NextDescriptor();
    Contents("good");
    CheckList(Contents("program_text"));
    EXPECT_EQ(NextDescriptor(), before);
}

TEST(Lists, GiveTheExpectedFindings)
{
    for (const std::string& name : Lists()) {
        if (CanBeChecked(name)) {
            ExpectKept(PathOf(name, ".expected"), Printed(name));
        }
    }
}

TEST(CheckList, FollowsTheReaderOnLineEndsInStrings)
{
    const std::string text = FindingsText(
        "x", CheckList("{\"0\": {\"name\": \"a\nb\", \"program\": \"/bin/sh\"}}"), false);
    const bool is_reported =
        text.find("x:1:16: error: the string is not closed on the line on which it starts") == 0;
    EXPECT_EQ(is_reported, !ReaderAcceptsLineEndsInStrings()) << text;
}

TEST(Lists, HaveNoSurplusExpectedFile)
{
    std::set<std::string> names;
    for (const std::string& name : Lists()) {
        names.insert(name + ".json");
        names.insert(name + ".expected");
    }
    DIR* directory = opendir(kLists.c_str());
    while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        EXPECT_TRUE(name[0] == '.' || names.count(name) == 1) << name;
    }
    closedir(directory);
}

TEST(FindingKinds, AreInTheTableInTheOrderOfTheEnumeration)
{
    std::set<std::string> names;
    for (std::size_t i = 0; i < kKindCount; ++i) {
        EXPECT_EQ(static_cast<std::size_t>(AllKinds()[i].kind), i);
        names.insert(AllKinds()[i].name);
    }
    EXPECT_EQ(names.size(), kKindCount);
}

TEST(FindingKinds, HaveTheSeverityOfTheTableInStartedItems)
{
    Findings findings;
    findings.Add({Kind::kNoName, 0, "", "", "", ""});
    findings.Add({Kind::kNoName, 0, "", "", "", ""}, false);
    EXPECT_EQ(findings.shown[0].severity, Severity::kError);
    EXPECT_EQ(findings.shown[1].severity, Severity::kWarning);
    EXPECT_EQ(findings.errors, 1U);
    EXPECT_EQ(findings.warnings, 1U);
}

TEST(FindingKinds, ArePublishedWithAnExampleOfEach)
{
    if (kOnLinux) {
        ExpectKept(KESTRANE_DOCS "/finding-kinds.md", Page());
    }
}

// Every problem that explain shows is the message of a finding.
TEST(CheckList, UsesTheWordsOfExplain)
{
    std::size_t problems = 0;
    for (const std::string& name : Lists()) {
        std::set<std::string> messages;
        for (const Finding& finding : CheckList(Contents(name)).shown) {
            messages.insert(finding.path.substr(0, finding.path.find('/', 1)) + " " +
                            finding.message);
        }
        for (const ExplainedItem& item : ExplainList(Contents(name)).items) {
            if (!item.problem.empty()) {
                ++problems;
                EXPECT_EQ(messages.count("/" + std::to_string(item.index) + " " + item.problem), 1U)
                    << name << ": " << item.problem;
            }
        }
    }
    EXPECT_GT(problems, 50U);
}

TEST(CheckList, CountsFindingsBeyondOneThousandOfAKind)
{
    const Findings findings = CheckList(ListOfItems(2500, ", \"color\": 1"));
    EXPECT_EQ(findings.shown.size(), 1000U);
    EXPECT_EQ(findings.warnings, 2500U);
    EXPECT_EQ(findings.not_shown.at(Kind::kUnknownMember), 1500U);
    const std::string text = FindingsText("x", findings, false);
    EXPECT_NE(text.find("x: 1500 more of the kind unknown-member\nx: 0 errors, 2500 warnings\n"),
              std::string::npos);
    JsonObject json(FindingsJson({{"x", "", findings}}).c_str());
    JsonObject list = json["lists"][0];
    EXPECT_EQ(list["findings"].GetArraySize(), 1000U);
    ASSERT_EQ(list["not_shown"].GetArraySize(), 1U);
    EXPECT_EQ(static_cast<std::string>(list["not_shown"][0]["kind"]), "unknown-member");
    EXPECT_EQ(static_cast<int>(list["not_shown"][0]["count"]), 1500);
}

TEST(FindingsText, CountsErrorsAndWarnings)
{
    Findings findings;
    EXPECT_EQ(FindingsText("x\x1b", findings, false), "x\\x1b: no mistakes\n");
    findings.errors = 1;
    EXPECT_EQ(FindingsText("x", findings, false), "x: 1 error, 0 warnings\n");
    findings.errors = 2;
    findings.warnings = 1;
    EXPECT_EQ(FindingsText("x", findings, false), "x: 2 errors, 1 warning\n");
}

TEST(FindingsJson, HasTheErrorOfAListThatCannotBeRead)
{
    JsonObject json(FindingsJson({{"x", "No such file", {}}, {"y", "", {}}}).c_str());
    ASSERT_EQ(json["lists"].GetArraySize(), 2U);
    EXPECT_EQ(static_cast<std::string>(json["lists"][0]["error"]), "No such file");
    EXPECT_FALSE(json["lists"][0]["errors"].IsValid());
    EXPECT_FALSE(json["lists"][1]["error"].IsValid());
    EXPECT_EQ(static_cast<int>(json["lists"][1]["errors"]), 0);
}

TEST(CheckList, FindsLinesInWhateverOrder)
{
    const Findings findings = CheckList(ListOfItems(3000, "") + "\n x");
    ASSERT_EQ(findings.shown.size(), 1U);
    EXPECT_EQ(findings.shown[0].line, 3001U);
    EXPECT_EQ(findings.shown[0].column, 2U);
}

TEST(CheckList, LeaksNoUnprintableByteOfAList)
{
    for (const std::string& name : Lists()) {
        if (!IsForLinux(name)) {
            ExpectSound(Contents(name));
        }
    }
}

TEST(CheckList, SurvivesAnyChangedByte)
{
    for (const std::string& name : Lists()) {
        const std::string bytes = Contents(name);
        for (std::size_t i = 0; i < bytes.size() && bytes.size() < 120; i += 2) {
            for (const char c : {'"', '}', '\xff'}) {
                std::string changed = bytes;
                changed[i] = c;
                ExpectSound(changed);
            }
            ExpectSound(bytes.substr(0, i));
            ExpectSound(std::string(bytes).erase(i, 1));
        }
    }
}
