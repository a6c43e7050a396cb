// Every list in lists/ is one mistake, or none; the file of the same name that ends in .expected is
// what `check` prints about it.
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "json/json_object.h"
#include "json/json_source.h"
#include "tests/support/next_descriptor.h"
#include "tools/launchlist/base/files.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/check.h"
#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/output/list_output.h"
#include "util/string_util.h"

using namespace launchlist;

namespace {

const std::string kLists = KESTRANE_LISTS;

std::string Read(const std::string& path)
{
    std::string bytes;
    std::string error;
    EXPECT_TRUE(ReadFile(path, bytes, error)) << path << ": " << error;
    return bytes;
}

// The file names of the lists, in order.
std::vector<std::string> Lists()
{
    std::vector<std::string> names;
    DIR* folder = opendir(kLists.c_str());
    while (const dirent* entry = folder != nullptr ? readdir(folder) : nullptr) {
        const std::string name = entry->d_name;
        if (name.size() > 5 && name.substr(name.size() - 5) == ".json") {
            names.push_back(name);
        }
    }
    closedir(folder);
    std::sort(names.begin(), names.end());
    return names;
}

// The bytes of the list `name`, or of the file that goes with it and ends otherwise.
std::string Contents(const std::string& name, const std::string& ending = ".json")
{
    std::string path = kLists;
    path += '/';
    path += name.substr(0, name.rfind('.'));
    return Read(path + ending);
}

// Replaces every `{DEPTH+N}` in `text` by the reader's depth limit plus N. The limit depends on the
// version of jsoncpp.
std::string WithDepthLimit(std::string text)
{
    const std::size_t limit = JsonSource(std::string(10'000, '[')).Fault()->depth_limit;
    for (const std::size_t n : {0U, 5U}) {
        replace_all(text, "{DEPTH+" + std::to_string(n) + "}", std::to_string(limit + n));
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

// What must hold for any bytes.
void ExpectSound(const std::string& bytes)
{
    const std::string text = bytes.substr(0, bytes.find('\0'));
    EXPECT_EQ(JsonObjectTakes(text), !JsonSource(text).Fault()) << printable(text);
    const Findings findings = CheckList(bytes);
    const Walk walk = ExplainList(bytes);
    const bool tells_end =
        std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
            return finding.severity == Severity::kError &&
                   finding.effect.find("ends") != std::string::npos;
        });
    EXPECT_TRUE(!walk.ends_launcher || tells_end) << printable(text);
    for (const std::string& output :
         {FindingsText("x", findings, false), FindingsJson("x", findings), WalkText(walk, false),
          WalkJson("x", walk)}) {
        EXPECT_TRUE(is_utf8(output)) << printable(text);
        for (const char c : output) {
            EXPECT_TRUE(static_cast<unsigned char>(c) >= 0x20 || c == '\n') << printable(output);
        }
    }
}

}  // namespace

TEST(Lists, ThereAreSome)
{
    EXPECT_GT(Lists().size(), 70U);
}

TEST(Lists, AreClosedWhenRead)
{
    const int before = NextDescriptor();
    Contents("good.json");
    EXPECT_EQ(NextDescriptor(), before);
}

TEST(Lists, CheckPrintsWhatIsExpected)
{
    for (const std::string& name : Lists()) {
        const std::string expected = WithDepthLimit(Contents(name, ".expected"));
        EXPECT_EQ(FindingsText(name, CheckList(Contents(name)), false), expected);
    }
}

TEST(Lists, EveryKindOfFindingHasOne)
{
    const std::set<std::string> kAll = {
        "zero-byte",        "not-utf8",          "too-deep",        "syntax",
        "text-after-list",  "no-items",          "list-type",       "empty",
        "item-twice",       "item-number",       "unknown-member",  "item-unreached",
        "name-twice",       "member-twice",      "no-name",         "item-type",
        "name-type",        "name-empty",        "no-program",      "program-type",
        "program-relative", "program-not-there", "program-no-file", "program-not-executable",
        "text-cut",         "args-missing",      "argc-type",       "argc-negative",
        "argc-too-big",     "argc-value",        "args-type",       "argument-type",
        "argument-text",    "args-beyond-argc",
    };
    std::set<std::string> seen;
    for (const std::string& name : Lists()) {
        for (const Finding& finding : CheckList(Contents(name))) {
            seen.insert(finding.kind);
        }
    }
    EXPECT_EQ(seen, kAll);
}

TEST(Lists, NothingInThemReachesTheOutputAsItIs)
{
    for (const std::string& name : Lists()) {
        ExpectSound(Contents(name));
    }
}

TEST(Lists, NoChangedByteBreaksCheckOrExplain)
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
