// Runs one operation COUNT times, for a tool that counts instructions:
//
//     instructions OPERATION COUNT
//
// The difference between two counts is the cost of the operation without that of the start-up.
// Prints the nanoseconds per operation; without arguments, the names of the operations.
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <string>

#include "config/ini_profile.h"
#include "json/json_object.h"
#include "launcher/launch_item.h"
#include "util/string_util.h"
#include "util/util.h"

namespace {

constexpr int kItems = 1000;

// A launch list without whitespace, as programs write it.
std::string List()
{
    std::string text = "{";
    for (int i = 0; i < kItems; ++i) {
        const std::string number = std::to_string(i);
        text.append(i == 0 ? "" : ",").append("\"").append(number);
        text.append(R"(":{"name":"helper-)").append(number);
        text.append(R"(","program":"/usr/local/libexec/helper","argc":1,"args":{"0":"-v"}})");
    }
    return text + "}";
}

// Reads every item of a list as the launcher does: its name, and in the child its program and
// arguments.
void LookUpEveryItem(JsonObject& list)
{
    for (int i = 0; HasItem(list, i); ++i) {
        JsonObject item = GetItem(list, i);
        if (HasName(item)) {
            const std::string name = ItemName(item);
        }
        const std::string program = ItemProgram(item);
        const int count = ItemArgumentCount(item);
        for (int argument = 0; argument < count; ++argument) {
            const std::string text = ItemArgument(item, argument);
        }
    }
}

// A profile with ten keys before the wanted one. The file exists as long as the object.
class Profile
{
public:
    Profile()
    {
        close(mkstemp(m_path.data()));
        std::ofstream file(m_path);
        file << "[LOG]\n";
        for (int i = 0; i < 10; ++i) {
            file << "KEY" << i << "=value\n";
        }
        file << "LEVEL=ERROR\n";
    }
    ~Profile() { unlink(m_path.c_str()); }
    Profile(const Profile&) = delete;
    Profile& operator=(const Profile&) = delete;

    void Read() const
    {
        char buffer[64];
        GetPrivateProfileString("LOG", "LEVEL", "", buffer, sizeof buffer, m_path);
    }

private:
    std::string m_path = "/tmp/instructions.XXXXXX";
};

using Operations = std::map<std::string, std::function<void()>>;

Operations MakeOperations()
{
    static const std::string list_text = List();
    static JsonObject list(list_text.c_str(), static_cast<unsigned int>(list_text.size()));
    static const std::regex slash("/");
    static const Profile profile;
    static const std::string name = "a-report-of-some-length.final.txt";
    static const std::wstring wide_name = s2ws(name);
    static const std::wstring wide_expression = s2ws("*REP*.TXT");
    static const std::string narrow = ws2s(std::wstring(1000, L'\u00E9'));
    static const std::wstring wide(1000, L'\u00E9');
    return {
        {"json-parse-1000-items",
         [] { JsonObject(list_text.c_str(), static_cast<unsigned int>(list_text.size())); }},
        {"json-path-one-name", [] { list.GetObject("500"); }},
        {"json-path-two-names", [] { list.GetObject("500/name"); }},
        {"json-path-missing", [] { list.HasObject("none"); }},
        {"json-member", [] { list["500"]; }},
        {"json-lookups-of-1000-items", [] { LookUpEveryItem(list); }},
        {"expression-made", [] { std::regex made("/"); }},
        {"expression-split-two-names", [] { split("500/name", slash); }},
        {"ini-read-after-10-keys", [] { profile.Read(); }},
        {"wildcard-match",
         [] { IsNameInExpression(wide_expression.c_str(), wide_name.c_str(), true); }},
        {"utf8-decode-1000-characters", [] { s2ws(narrow); }},
        {"utf8-encode-1000-characters", [] { ws2s(wide); }},
    };
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): an uncaught exception may end a benchmark.
int main(int argc, char** argv)
{
    const Operations operations = MakeOperations();
    if (argc != 3) {
        for (const auto& entry : operations) {
            std::puts(entry.first.c_str());
        }
        return argc == 1 ? 0 : 1;
    }
    const std::function<void()>& operation = operations.at(argv[1]);
    const int count = std::atoi(argv[2]);
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) {
        operation();
    }
    const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - begin;
    std::printf("%.1f\n", taken.count() / count);
}
