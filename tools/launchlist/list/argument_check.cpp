#include "tools/launchlist/list/argument_check.h"

#include <algorithm>
#include <exception>
#include <set>

#include "launcher/launch_item.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/argument_vector.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/list/member_check.h"

namespace launchlist {

namespace {

// How many of several things a message names one by one.
constexpr std::size_t kNamed = 3;

class ArgumentCheck
{
public:
    ArgumentCheck(ItemToCheck& item, Findings& findings)
        : m_item(item), m_path(MemberPath(item.path, "args")), m_findings(findings)
    {
        for (const JsonMember& member : item.source.Members(item.member.value)) {
            if (!member.replaced && member.name == "argc") {
                m_argc = member;
            } else if (!member.replaced && member.name == "args") {
                m_args = member;
            }
        }
    }

    void Run()
    {
        if (m_argc && !CheckCount()) {
            return;
        }
        const JsonType type = m_args ? m_args->value.type : JsonType::kNull;
        if (type == JsonType::kObject) {
            CheckMembers();
        } else if (type != JsonType::kNull) {
            CheckNoObject();
        } else if (m_count > 0) {
            Add(Severity::kWarning, "args-missing", Anchor(), m_args ? m_path : m_item.path,
                m_args ? "\"args\" is null" : "there are no \"args\"",
                "every argument that \"argc\" counts is the empty text",
                "add \"args\", or remove \"argc\"");
        }
    }

private:
    void Add(Severity severity, const char* kind, std::size_t offset, const std::string& path,
             const std::string& message, const std::string& effect, const std::string& remedy)
    {
        m_findings.push_back({severity, kind, offset, path, message, effect, remedy});
    }

    void AddCount(Severity severity, const char* kind, const std::string& message,
                  const std::string& effect)
    {
        Add(severity, kind, m_argc->value.begin, MemberPath(m_item.path, "argc"), message, effect,
            "write the number of arguments, 0 or more");
    }

    std::size_t Anchor() const { return m_args ? m_args->value.begin : m_argc->value.begin; }

    // Whether there is a count with which the arguments can be looked at.
    bool CheckCount()
    {
        const std::string written = quoted(m_item.source.Written(m_argc->value));
        try {
            m_count = ItemArgumentCount(m_item.item);
        } catch (const std::exception&) {
            AddCount(Severity::kError, "argc-type",
                     m_argc->value.type == JsonType::kNumber ? "the count does not fit 64 bits"
                                                             : "the count is no number",
                     kAbortsChild);
            return false;
        }
        if (m_count < -1) {
            AddCount(Severity::kError, "argc-negative", "the count is " + std::to_string(m_count),
                     kOverrunsVector);
            return false;
        }
        if (!FitsStack(m_count)) {
            AddCount(Severity::kError, "argc-too-big", "the count is " + std::to_string(m_count),
                     kOverrunsStack);
            return false;
        }
        if (m_count == -1) {
            AddCount(Severity::kWarning, "argc-negative", "the count is -1", kEmptyVector);
        }
        if (m_item.source.Written(m_argc->value) != std::to_string(m_count)) {
            AddCount(Severity::kWarning, "argc-value", "the count is written as " + written,
                     "it counts as " + std::to_string(m_count));
        }
        return true;
    }

    void CheckNoObject()
    {
        if (m_count > 0) {
            Add(Severity::kError, "args-type", Anchor(), m_path, "the arguments are no object",
                kAbortsChild, "write {\"0\": \"first\", \"1\": \"second\", ...}");
        } else {
            Add(Severity::kWarning, "args-type", Anchor(), m_path, "the arguments are no object",
                "they are ignored, since \"argc\" counts none",
                "write {\"0\": \"first\", \"1\": \"second\", ...}, and \"argc\"");
        }
    }

    void CheckMembers()
    {
        const std::vector<JsonMember> members = m_item.source.Members(m_args->value);
        CheckReplaced(members, m_path, m_findings);
        std::set<std::string> expected;
        for (int i = 0; i < m_count; ++i) {
            expected.insert(ItemKey(i));
        }
        std::vector<const JsonMember*> beyond;
        std::set<std::string> missing = expected;
        for (const JsonMember& member : members) {
            missing.erase(member.name);
            if (member.replaced) {
                continue;
            }
            if (expected.count(member.name) != 0) {
                CheckArgument(member);
            } else if (IsArgumentNumber(member.name)) {
                beyond.push_back(&member);
            } else {
                Add(Severity::kWarning, "unknown-member", member.name_begin,
                    MemberPath(m_path, member.name), "unknown member " + quoted(member.name),
                    "it is ignored", "arguments are the members \"0\", \"1\" and so on");
            }
        }
        ReportMissing(missing);
        ReportBeyond(beyond);
    }

    static bool IsArgumentNumber(const std::string& name)
    {
        return !name.empty() && name.find_first_not_of("0123456789") == std::string::npos &&
               (name == "0" || name[0] != '0');
    }

    void CheckArgument(const JsonMember& member)
    {
        const std::string path = MemberPath(m_path, member.name);
        const std::size_t offset = member.value.begin;
        if (member.value.type == JsonType::kArray || member.value.type == JsonType::kObject) {
            Add(Severity::kError, "argument-type", offset, path, "the argument is no text",
                kAbortsChild, "write a string");
            return;
        }
        const std::string passed = ItemArgument(m_item.item, std::stoi(member.name));
        if (member.value.type == JsonType::kString) {
            if (m_item.source.String(member.value) != passed) {
                Add(Severity::kWarning, "text-cut", offset, path,
                    "a zero character inside the text", "the text ends before it",
                    "remove the \\u0000");
            }
        } else if (m_item.source.Written(member.value) != passed) {
            Add(Severity::kWarning, "argument-text", offset, path,
                "the argument is written as " + quoted(m_item.source.Written(member.value)),
                "it is passed as " + quoted(passed), "write it as a string");
        }
    }

    void ReportMissing(const std::set<std::string>& missing)
    {
        if (missing.empty()) {
            return;
        }
        // By number, not by text: "10" comes behind "9".
        std::vector<int> numbers;
        std::transform(missing.begin(), missing.end(), std::back_inserter(numbers),
                       [](const std::string& name) { return std::stoi(name); });
        std::sort(numbers.begin(), numbers.end());
        std::string names;
        for (std::size_t i = 0; i < std::min(numbers.size(), kNamed); ++i) {
            names += (i == 0 ? "" : ", ") + ("\"" + ItemKey(numbers[i]) + "\"");
        }
        if (numbers.size() > kNamed) {
            names += " and " + std::to_string(numbers.size() - kNamed) + " more";
        }
        Add(Severity::kWarning, "args-missing", Anchor(), m_path,
            "\"argc\" is " + std::to_string(m_count) + ", but there is no argument " + names,
            "each is passed as the empty text", "correct \"argc\", or add the arguments");
    }

    void ReportBeyond(const std::vector<const JsonMember*>& beyond)
    {
        if (beyond.empty()) {
            return;
        }
        const std::string more =
            beyond.size() > 1 ? " and " + std::to_string(beyond.size() - 1) + " more" : "";
        Add(Severity::kWarning, "args-beyond-argc", beyond.front()->name_begin,
            MemberPath(m_path, beyond.front()->name),
            m_argc ? "\"argc\" is " + std::to_string(m_count) + ", but there is an argument " +
                         quoted(beyond.front()->name) + more
                   : "there are \"args\", but no \"argc\"",
            "what \"argc\" does not count is not passed", "correct \"argc\"");
    }

    ItemToCheck& m_item;
    const std::string m_path;  // Of "args".
    Findings& m_findings;
    std::optional<JsonMember> m_argc;
    std::optional<JsonMember> m_args;
    int m_count = 0;
};

}  // namespace

void CheckArguments(ItemToCheck& item, Findings& findings)
{
    ArgumentCheck(item, findings).Run();
}

}  // namespace launchlist
