#include "tools/launchlist/list/fix.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <vector>

#include "json/json_source.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/check_context.h"
#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/list/item_fix.h"
#include "tools/launchlist/list/item_number.h"
#include "tools/launchlist/list/wide_encoding.h"

namespace launchlist {

namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
constexpr std::size_t kByteOrderMarkSize = 3;

// What the launcher reads of the file: a zero byte ends it.
std::string ReadPart(const std::string& bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

std::size_t SizeOfByteOrderMarks(const std::string& text)
{
    std::size_t size = 0;
    while (text.compare(size, kByteOrderMarkSize, kByteOrderMark) == 0) {
        size += kByteOrderMarkSize;
    }
    return size;
}

// The list in UTF-8 without a mark, if it is encoded differently and can be converted.
std::optional<std::string> Converted(const std::string& bytes)
{
    const std::optional<WideEncoding> encoding = FindWideEncoding(bytes);
    if (!encoding || !JsonSource(ReadPart(bytes)).Fault()) {
        return std::nullopt;
    }
    std::optional<std::string> text = ToUtf8(bytes, *encoding);
    if (text) {
        text->erase(0, SizeOfByteOrderMarks(*text));
    }
    const bool is_certain = encoding->has_mark || (text && !JsonSource(ReadPart(*text)).Fault());
    return is_certain ? text : std::nullopt;
}

// Whether the launcher may end before SIGTERM, other than by reaching a limit of processes.
bool MayEnd(const std::string& text)
{
    const LauncherOutcomes outcomes = ExplainList(text).outcomes;
    return std::any_of(outcomes.begin(), outcomes.end(), [](const LauncherOutcome& outcome) {
        return outcome.outcome != Outcome::kKeepsRunning &&
               outcome.condition != Condition::kProcessLimit;
    });
}

// Corrects a list that the reader accepts.
class ListFix
{
public:
    explicit ListFix(const std::string& text)
        : m_text(text), m_source(text), m_members(m_source.Members(m_source.Root()))
    {
    }

    void Run()
    {
        const ListText list = {m_text, m_source};
        std::vector<JsonMember> schemas;
        for (const JsonMember& member : m_members) {
            if (member.name == kSchemaMember) {
                schemas.push_back(member);
            } else if (IsItem(member) && !member.replaced &&
                       member.value.type == JsonType::kObject) {
                FixItem(list, member.value, m_edits);
            }
        }
        RemoveReplaced(list, schemas, m_edits);
        SortEdits(m_edits);
        FixNumbers();
    }

    const TextEdits& Edits() const { return m_edits; }
    const std::string& NumberingProblem() const { return m_numbering_problem; }

private:
    static bool IsItem(const JsonMember& member)
    {
        return IsPlainNumber(member.name) ||
               (NumberMeant(member.name) && member.value.type == JsonType::kObject);
    }

    void FixNumbers()
    {
        TextEdits edits = Renumbering();
        if (edits.empty()) {
            m_numbering_problem.clear();
            return;
        }
        if (!m_numbering_problem.empty()) {
            return;
        }
        edits.insert(edits.end(), m_edits.begin(), m_edits.end());
        SortEdits(edits);
        if (MayEnd(Apply(edits, m_text)) && !MayEnd(Apply(m_edits, m_text))) {
            m_numbering_problem = "an item that the launcher does not reach now might then end it";
            return;
        }
        m_edits = std::move(edits);
    }

    // The edits that number the items from 0 without a gap, in the order of their numbers. Sets the
    // problem that keeps them from being certain.
    TextEdits Renumbering()
    {
        struct Less
        {
            bool operator()(const std::string& left, const std::string& right) const
            {
                return IsLessNumber(left, right);
            }
        };
        std::multimap<std::string, const JsonMember*, Less> items;
        for (const JsonMember& member : m_members) {
            if (IsItem(member)) {
                const std::string number = *NumberMeant(member.name);
                if (items.count(number) > 0) {
                    m_numbering_problem = "more than one item has the number " + number;
                }
                if (member.replaced && !IsPlainNumber(member.name)) {
                    // The later one need not be an item.
                    m_numbering_problem = "more than one member is called " + quoted(member.name);
                }
                items.emplace(number, &member);
            } else if (ResemblesNumber(member.name) && member.value.type == JsonType::kObject) {
                m_numbering_problem = "it is not certain what " + quoted(member.name) + " means";
            }
        }
        TextEdits edits;
        std::size_t next = 0;
        for (const auto& [number, member] : items) {
            Rename(*member, std::to_string(next++), edits);
        }
        SortEdits(edits);
        return edits;
    }

    const std::string m_text;
    const JsonSource m_source;
    const std::vector<JsonMember> m_members;
    TextEdits m_edits;
    std::string m_numbering_problem;
};

}  // namespace

FixedList FixList(const std::string& bytes)
{
    FixedList fixed;
    const std::optional<std::string> converted = Converted(bytes);
    const std::string& whole = converted ? *converted : bytes;
    const std::size_t mark = SizeOfByteOrderMarks(whole);
    const std::string text = ReadPart(whole.substr(mark));
    if (!JsonSource(text).Fault()) {
        ListFix list(text);
        list.Run();
        fixed.edits = list.Edits();
        fixed.numbering_problem = list.NumberingProblem();
    }
    for (TextEdit& edit : fixed.edits) {
        edit.offset += mark;
    }
    if (mark > 0) {
        fixed.edits.insert(fixed.edits.begin(), TextEdit{0, mark, ""});
    }
    fixed.bytes = Apply(fixed.edits, whole);
    if (converted) {
        fixed.edits = {{0, bytes.size(), fixed.bytes}};
    }
    return fixed;
}

}  // namespace launchlist
