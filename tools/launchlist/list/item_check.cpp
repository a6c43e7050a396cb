#include "tools/launchlist/list/item_check.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <exception>
#include <numeric>

#include "launcher/launch_item.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/argument_check.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/list/member_check.h"

namespace launchlist {

namespace {

constexpr std::array<const char*, 4> kMembers = {"name", "program", "args", "argc"};

// How many characters must be added, removed or exchanged to make one text the other.
std::size_t Distance(const std::string& from, const std::string& to)
{
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t exchanged = diagonal + (from[i - 1] == to[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, exchanged});
        }
    }
    return row.back();
}

// The known member that `name` may be meant to be; "" without one.
std::string Suggestion(std::string name)
{
    if (name.size() > 16) {
        return "";
    }
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto closest = std::min_element(kMembers.begin(), kMembers.end(),
                                          [&](const char* left, const char* right) {
                                              return Distance(name, left) < Distance(name, right);
                                          });
    return Distance(name, *closest) <= 2 ? *closest : "";
}

const JsonMember* Find(const std::vector<JsonMember>& members, const std::string& name)
{
    const auto is_it = [&](const JsonMember& member) {
        return member.name == name && !member.replaced;
    };
    const auto found = std::find_if(members.begin(), members.end(), is_it);
    return found != members.end() ? &*found : nullptr;
}

bool IsContainer(JsonType type)
{
    return type == JsonType::kArray || type == JsonType::kObject;
}

class ItemCheck
{
public:
    ItemCheck(ItemToCheck& item, Findings& findings)
        : m_item(item), m_members(item.source.Members(item.member.value)), m_findings(findings)
    {
    }

    void Run()
    {
        if (m_item.member.value.type == JsonType::kNull) {
            Add(Severity::kError, "no-name", Start(), "", "the item is null, and has no name",
                kSkipped, "write an object with \"name\" and \"program\"");
            return;
        }
        if (m_item.member.value.type != JsonType::kObject) {
            Add(Severity::kError, "item-type", Start(), "", "the item is no object",
                kRefusedOnTheWay, "write an object with \"name\" and \"program\"");
            return;
        }
        CheckReplaced(m_members, m_item.path, m_findings);
        CheckUnknown();
        CheckName();
        const std::size_t first = m_findings.size();
        CheckProgram();
        CheckArguments(m_item, m_findings);
        if (Find(m_members, "name") == nullptr) {
            ReplaceEffects(m_findings, first, kNotNamed);
        }
    }

private:
    std::size_t Start() const { return m_item.member.value.begin; }

    void Add(Severity severity, const char* kind, std::size_t offset, const char* member,
             const std::string& message, const std::string& effect, const std::string& remedy)
    {
        const std::string path = *member == '\0' ? m_item.path : MemberPath(m_item.path, member);
        m_findings.push_back({severity, kind, offset, path, message, effect, remedy});
    }

    void CheckUnknown()
    {
        for (const JsonMember& member : m_members) {
            if (std::find(kMembers.begin(), kMembers.end(), member.name) != kMembers.end()) {
                continue;
            }
            const std::string meant = Suggestion(member.name);
            m_findings.push_back(
                {Severity::kWarning, "unknown-member", member.name_begin,
                 MemberPath(m_item.path, member.name), "unknown member " + quoted(member.name),
                 "it is ignored",
                 meant.empty() ? "remove it" : "if \"" + meant + "\" is meant, write that"});
        }
    }

    void CheckName()
    {
        const JsonMember* name = Find(m_members, "name");
        if (name == nullptr) {
            Add(Severity::kError, "no-name", Start(), "", "the item has no name", kSkipped,
                "add a \"name\"");
            return;
        }
        const std::size_t offset = name->value.begin;
        const JsonType type = name->value.type;
        if (IsContainer(type)) {
            Add(Severity::kError, "name-type", offset, "name", "the name is no text",
                kRefusedOnTheWay, "write a string");
        } else if (type == JsonType::kNull || ItemName(m_item.item).empty()) {
            Add(Severity::kWarning, "name-empty", offset, "name",
                type == JsonType::kNull ? "the name is null" : "the name is empty",
                "the item runs under the empty name, which the log shows as nothing",
                "write a name");
        } else if (type != JsonType::kString) {
            Add(Severity::kWarning, "name-type", offset, "name", "the name is no text",
                "the item is called " + quoted(ItemName(m_item.item)), "write a string");
        }
        CheckCut(*name, "name");
    }

    void CheckProgram()
    {
        const JsonMember* program = Find(m_members, "program");
        if (program == nullptr) {
            Add(Severity::kError, "no-program", Start(), "", "the item has no program",
                kSignalsGroup, "add a \"program\" with an absolute path");
            return;
        }
        const std::size_t offset = program->value.begin;
        if (IsContainer(program->value.type)) {
            Add(Severity::kError, "program-type", offset, "program", "the program is no text",
                kTerminates, "write an absolute path");
            return;
        }
        const std::string path = ItemProgram(m_item.item);
        if (path.empty()) {
            Add(Severity::kError, "no-program", offset, "program",
                program->value.type == JsonType::kNull ? "the program is null"
                                                       : "the program is empty",
                kSignalsGroup, "write an absolute path");
            return;
        }
        if (program->value.type != JsonType::kString) {
            Add(Severity::kWarning, "program-type", offset, "program", "the program is no text",
                "the path is " + quoted(path), "write an absolute path");
        }
        CheckCut(*program, "program");
        CheckFile(path, offset);
    }

    void CheckFile(const std::string& path, std::size_t offset)
    {
        struct stat status = {};
        const bool is_there = stat(path.c_str(), &status) == 0;
        if (path[0] != '/') {
            Add(Severity::kWarning, "program-relative", offset, "program",
                "the path " + quoted(path) + " is relative",
                "it is looked for in the folder in which the launcher is started; from here there "
                "is " +
                    std::string(is_there ? "such a file" : "none"),
                "write an absolute path");
            return;
        }
        if (!is_there) {
            const bool is_missing = errno == ENOENT || errno == ENOTDIR;
            Add(Severity::kError, "program-not-there", offset, "program",
                is_missing ? "there is no " + quoted(path)
                           : quoted(path) + " cannot be looked at: " + std::strerror(errno),
                kCannotExecute, "correct the path, or install the program");
        } else if (!S_ISREG(status.st_mode)) {
            Add(Severity::kError, "program-no-file", offset, "program",
                quoted(path) + (S_ISDIR(status.st_mode) ? " is a folder" : " is no file"),
                kCannotExecute, "write the path of the program itself");
        } else if (access(path.c_str(), X_OK) != 0) {
            Add(Severity::kError, "program-not-executable", offset, "program",
                quoted(path) + " may not be executed", kCannotExecute,
                "make it executable for the user of the launcher (chmod +x)");
        }
    }

    void CheckCut(const JsonMember& member, const char* name)
    {
        if (member.value.type == JsonType::kString &&
            m_item.source.String(member.value).find('\0') != std::string::npos) {
            Add(Severity::kWarning, "text-cut", member.value.begin, name,
                "a zero character inside the text", "the text ends before it",
                "remove the \\u0000");
        }
    }

    ItemToCheck& m_item;
    const std::vector<JsonMember> m_members;
    Findings& m_findings;
};

}  // namespace

void CheckItem(ItemToCheck& item, Findings& findings)
{
    ItemCheck(item, findings).Run();
}

}  // namespace launchlist
