#include "tools/launchlist/list/argument_check.h"

#include <algorithm>
#include <exception>

#include "launcher/launch_item.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/argument_vector.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/list/item_number.h"
#include "tools/launchlist/list/problems.h"

namespace launchlist {

namespace {

// How many missing arguments a message names one by one.
constexpr std::size_t kMaxNamed = 3;

class ArgumentCheck
{
public:
    explicit ArgumentCheck(ItemToCheck& item)
        : m_item(item),
          m_path(MemberPath(item.path, "args")),
          m_argc(item.Find("argc")),
          m_args(item.Find("args"))
    {
    }

    void Run()
    {
        if (m_argc != nullptr && !CheckCount()) {
            return;
        }
        const JsonType type = m_args != nullptr ? m_args->value.type : JsonType::kNull;
        if (type == JsonType::kObject) {
            CheckMembers();
        } else if (type != JsonType::kNull) {
            CheckNotAnObject();
        } else if (m_count > 0) {
            Add(Kind::kArgsMissing, Anchor(), m_args != nullptr ? m_path : m_item.path,
                m_args != nullptr ? "\"args\" is null" : "there are no \"args\"",
                "every argument that \"argc\" counts is passed as an empty string",
                "add \"args\", or remove \"argc\"");
        }
        CheckLength();
    }

private:
    void Add(Kind kind, std::size_t place, const std::string& pointer, const std::string& message,
             const std::string& effect, const std::string& fix)
    {
        m_item.Add(kind, Stage::kArguments, place, pointer, message, effect, fix);
    }

    void AddCount(Kind kind, const std::string& message, const std::string& effect)
    {
        m_item.Add(kind, Stage::kCount, m_argc->value.begin, MemberPath(m_item.path, "argc"),
                   message, effect,
                   "write the number of arguments, from 0 to " + std::to_string(kMaxArgumentCount));
    }

    std::size_t Anchor() const
    {
        return m_args != nullptr ? m_args->value.begin : m_argc->value.begin;
    }

    // Whether there is a count with which the arguments can be examined.
    bool CheckCount()
    {
        const std::string written = m_item.context.source.Written(m_argc->value);
        try {
            m_count = ItemArgumentCount(m_item.item);
        } catch (const std::exception&) {
            AddCount(Kind::kArgcType,
                     m_argc->value.type == JsonType::kNumber ? problems::kArgcTooWide
                                                             : problems::kArgcType,
                     effects::kAbortsChild);
            return false;
        }
        const std::string is_count = problems::ArgcIs(m_count);
        if (m_count < -1) {
            AddCount(Kind::kArgcUndefined, is_count, effects::kUndefined);
            return false;
        }
        const StackFit fit = FitOnStack(m_count);
        if (fit != StackFit::kFits) {
            AddCount(
                Kind::kArgcTooBig, is_count,
                fit == StackFit::kOverruns ? effects::kOverrunsStack : effects::kMayOverrunStack);
            return false;
        }
        if (m_count == -1) {
            AddCount(Kind::kArgcMinusOne, is_count, effects::kEmptyVector);
        }
        if (written != std::to_string(m_count)) {
            AddCount(Kind::kArgcValue, "\"argc\" is written as " + quoted(written),
                     "it is read as " + std::to_string(m_count));
        }
        return true;
    }

    void CheckNotAnObject()
    {
        constexpr char kWriteObject[] = "write {\"0\": \"first\", \"1\": \"second\", ...}";
        if (m_count > 0) {
            Add(Kind::kArgsType, Anchor(), m_path, problems::kArgsType, effects::kAbortsChild,
                kWriteObject);
        } else {
            Add(Kind::kArgsIgnored, Anchor(), m_path, problems::kArgsType,
                "it is ignored, because \"argc\" counts no arguments",
                std::string(kWriteObject) + ", and \"argc\"");
        }
    }

    void CheckMembers()
    {
        const std::vector<JsonMember> members = m_item.context.source.Members(m_args->value);
        CheckReplaced(members, m_path, m_item.context);
        std::vector<bool> given(static_cast<std::size_t>(std::max(m_count, 0)));
        std::vector<const JsonMember*> beyond;
        for (const JsonMember& member : members) {
            if (member.replaced) {
                continue;
            }
            if (!IsPlainNumber(member.name)) {
                m_item.Add(Kind::kUnknownMember, Stage::kReading, member.name_begin,
                           MemberPath(m_path, member.name), "unknown member " + quoted(member.name),
                           effects::kIgnored, "arguments are the members \"0\", \"1\" and so on");
            } else if (member.name.size() > 9 || std::stoi(member.name) >= m_count) {
                beyond.push_back(&member);
            } else {
                given[static_cast<std::size_t>(std::stoi(member.name))] = true;
                CheckArgument(member);
            }
        }
        ReportMissing(given);
        ReportBeyond(beyond);
    }

    void CheckArgument(const JsonMember& member)
    {
        const JsonSource& source = m_item.context.source;
        const std::string pointer = MemberPath(m_path, member.name);
        const std::size_t place = member.value.begin;
        if (member.value.type == JsonType::kArray || member.value.type == JsonType::kObject) {
            Add(Kind::kArgumentType, place, pointer, problems::kArgumentType, effects::kAbortsChild,
                "write a string");
            return;
        }
        const std::string passed = ItemArgument(m_item.item, std::stoi(member.name));
        if (member.value.type == JsonType::kString) {
            if (source.String(member.value) != passed) {
                Add(Kind::kTruncatedString, place, pointer, "the string contains a NUL character",
                    "the string is cut off there", "remove the \\u0000");
            }
        } else if (source.Written(member.value) != passed) {
            Add(Kind::kArgumentText, place, pointer,
                "the argument is written as " + quoted(source.Written(member.value)),
                "it is passed as " + quoted(passed), "write it as a string");
        }
    }

    void ReportMissing(const std::vector<bool>& given)
    {
        const auto missing =
            static_cast<std::size_t>(std::count(given.begin(), given.end(), false));
        if (missing == 0) {
            return;
        }
        std::string names;
        std::size_t named = 0;
        for (std::size_t i = 0; named < std::min(missing, kMaxNamed); ++i) {
            if (!given[i]) {
                names += (named++ == 0 ? "\"" : ", \"") + ItemKey(static_cast<int>(i)) + "\"";
            }
        }
        if (missing > named) {
            names += " and " + std::to_string(missing - named) + " more";
        }
        Add(Kind::kArgsMissing, Anchor(), m_path,
            "\"argc\" is " + std::to_string(m_count) + ", but there is no argument " + names,
            "each missing argument is passed as an empty string",
            "correct \"argc\", or add the arguments");
    }

    void ReportBeyond(const std::vector<const JsonMember*>& beyond)
    {
        if (beyond.empty()) {
            return;
        }
        const std::string more =
            beyond.size() > 1 ? " and " + std::to_string(beyond.size() - 1) + " more" : "";
        Add(Kind::kArgsBeyondArgc, beyond.front()->name_begin,
            MemberPath(m_path, beyond.front()->name),
            m_argc != nullptr
                ? "\"argc\" is " + std::to_string(m_count) + ", but there is an argument " +
                      quoted(beyond.front()->name) + more
                : "there are \"args\", but no \"argc\"",
            m_argc != nullptr ? "arguments beyond \"argc\" are not passed"
                              : "without \"argc\" no arguments are passed",
            m_argc != nullptr ? "correct \"argc\"" : "add \"argc\"");
    }

    // A vector that the system refuses, of a program that could be executed otherwise.
    void CheckLength()
    {
        const std::optional<TooLong>& too_long = m_item.explained.too_long;
        if (!too_long) {
            return;
        }
        const JsonMember* place = m_args != nullptr ? m_args : m_argc;
        std::string pointer = m_path;
        if (too_long->index > 0) {
            pointer = MemberPath(m_path, ItemKey(static_cast<int>(too_long->index) - 1));
        } else if (place == nullptr) {
            place = m_item.Find("program");
            pointer = MemberPath(m_item.path, "program");
        }
        m_item.Add(too_long->kind, Stage::kExecution, place->value.begin, pointer,
                   too_long->message, effects::kCannotExecute,
                   "pass less, or pass the path of a file that contains it");
    }

    ItemToCheck& m_item;
    const std::string m_path;  // Of "args".
    const JsonMember* const m_argc;
    const JsonMember* const m_args;
    int m_count = 0;
};

}  // namespace

void CheckArguments(ItemToCheck& item)
{
    ArgumentCheck(item).Run();
}

}  // namespace launchlist
