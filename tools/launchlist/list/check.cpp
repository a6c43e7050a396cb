#include "tools/launchlist/list/check.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>

#include "launcher/launch_item.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/list/item_check.h"
#include "tools/launchlist/list/item_number.h"
#include "tools/launchlist/list/syntax_check.h"
#include "tools/launchlist/list/wide_encoding.h"

namespace launchlist {

namespace {

constexpr char kWriteList[] = "write an object with the items \"0\", \"1\", ...";

void CheckBytes(const std::string& bytes, const std::string& text, Findings& findings)
{
    if (text.size() < bytes.size()) {
        findings.Add({Kind::kZeroByte, text.size(), "", "the file contains a zero byte",
                      "the list ends here; the rest of the file is ignored", "remove the byte"});
    }
    std::size_t bad = 0;
    if (!is_utf8(text, &bad)) {
        findings.Add({Kind::kNotUtf8, bad, "", "the file is not UTF-8",
                      "the bytes are passed on unchanged", "save the file as UTF-8"});
    }
}

// Checks a list whose root is an object.
class ListCheck
{
public:
    ListCheck(CheckContext& context, const std::string& text)
        : m_context(context),
          m_list(text.c_str(), static_cast<unsigned int>(text.size())),
          m_explanation(ExplainList(text)),
          m_members(context.source.Members(context.source.Root()))
    {
        while (HasItem(m_list, m_count)) {
            ++m_count;
        }
    }

    void Run()
    {
        CheckReplacedItems();
        CheckReplacedSchema();
        for (const JsonMember& member : m_members) {
            const std::string pointer = MemberPath("", member.name);
            if (member.name == kSchemaMember) {
                CheckSchemaMember(member, pointer);
            } else if (!IsPlainNumber(member.name)) {
                CheckKey(member, pointer);
            } else if (!member.replaced) {
                CheckNumbered(member, pointer);
            }
        }
        if (m_count == 0) {
            m_context.findings.Add({Kind::kNoItems, m_context.source.Root().begin, "",
                                    "there is no item \"0\", so nothing will be started",
                                    effects::kStartsNothing,
                                    "write the first item as member \"0\""});
        }
    }

private:
    void Add(Kind kind, const JsonMember& member, const std::string& message,
             const std::string& effect, const std::string& fix)
    {
        m_context.findings.Add(
            {kind, member.name_begin, MemberPath("", member.name), message, effect, fix});
    }

    void CheckReplacedItems()
    {
        std::map<std::string, std::size_t> winners;
        for (const JsonMember& member : m_members) {
            if (!member.replaced) {
                winners[member.name] = member.name_begin;
            }
        }
        for (const JsonMember& member : m_members) {
            if (member.replaced && IsPlainNumber(member.name)) {
                const std::size_t line = m_context.positions.At(winners[member.name]).line;
                Add(Kind::kDuplicateItem, member,
                    "duplicate item " + quoted(member.name) + "; the last one wins (line " +
                        std::to_string(line) + ")",
                    "this one never runs", "give every item its own number");
            }
        }
    }

    void CheckReplacedSchema()
    {
        std::vector<JsonMember> schemas;
        std::copy_if(m_members.begin(), m_members.end(), std::back_inserter(schemas),
                     [](const JsonMember& member) { return member.name == kSchemaMember; });
        CheckReplaced(schemas, "", m_context);
    }

    // Editors read it; the launcher ignores it.
    void CheckSchemaMember(const JsonMember& member, const std::string& pointer)
    {
        if (!member.replaced && member.value.type != JsonType::kString) {
            m_context.findings.Add({Kind::kUnknownMember, member.value.begin, pointer,
                                    "\"$schema\" must be a string", effects::kIgnored,
                                    "write the path or URL of the schema, or remove it"});
        }
    }

    void CheckKey(const JsonMember& member, const std::string& pointer)
    {
        if (ResemblesNumber(member.name) && member.value.type == JsonType::kObject) {
            Add(Kind::kItemKey, member, quoted(member.name) + " is not written like an item number",
                "the item is never started",
                "write the number in digits alone, without leading zeros");
        } else {
            m_context.findings.Add({Kind::kUnknownMember, member.name_begin, pointer,
                                    "unknown member " + quoted(member.name), effects::kIgnored,
                                    "remove it; items are the members \"0\", \"1\" and so on"});
        }
    }

    void CheckNumbered(const JsonMember& member, const std::string& pointer)
    {
        const std::vector<ExplainedItem>& items = m_explanation.items;
        const bool precedes_gap = member.name.size() <= 9 && std::stoi(member.name) < m_count;
        if (!precedes_gap) {
            Add(Kind::kItemUnreached, member,
                "item " + quoted(member.name) + " is never reached: there is no item \"" +
                    ItemKey(m_count) + "\"",
                m_count == 0 ? effects::kStartsNothing : effects::kAfterGap,
                "number the items from \"0\" without a gap");
        }
        ItemToCheck item{m_context,
                         m_list[member.name.c_str()],
                         pointer,
                         member.value.begin,
                         m_context.source.Members(member.value),
                         {},
                         "",
                         ""};
        const std::size_t index =
            precedes_gap ? static_cast<std::size_t>(std::stoi(member.name)) : items.size();
        if (index >= items.size()) {
            item.effect_if_unreached = effects::kNotReached;
        } else {
            item.explained = items[index];
        }
        const ItemOutcome outcome = item.explained.outcome;
        const bool is_without_start = index >= items.size() || outcome == ItemOutcome::kSkipped ||
                                      outcome == ItemOutcome::kRejected;
        if (is_without_start && member.value.type == JsonType::kObject) {
            // Explained as if it were started, so that its program and arguments are checked, too.
            const std::string effect = item.explained.effect;
            item.explained = ExplainProgram(item.item, m_context.files);
            item.explained.effect = index < items.size() ? effect : item.explained.effect;
            item.effect_if_not_started =
                outcome == ItemOutcome::kSkipped ? effects::kNotNamed : effects::HiddenBy("name");
        }
        CheckItem(item, member.value.type);
        if (index < items.size() && items[index].replaces) {
            ReportDuplicateName(item, items[index]);
        }
    }

    // When the second of two items with the same name starts, it ends the first.
    void ReportDuplicateName(const ItemToCheck& item, const ExplainedItem& explained)
    {
        const int first = *explained.first_user;
        const std::size_t line = m_context.positions.At(NameOffset(first)).line;
        m_context.findings.Add(
            {Kind::kDuplicateName, item.Find("name")->value.begin, item.path + "/name",
             "duplicate name " + quoted(*explained.name) + " (first used by item " +
                 std::to_string(first) + ", line " + std::to_string(line) + ")",
             effects::Replaces(*explained.replaces, explained.index),
             "give every item its own name"});
    }

    // Where the name of item `index` is.
    std::size_t NameOffset(int index)
    {
        if (m_places.empty()) {
            for (const JsonMember& member : m_members) {
                if (!member.replaced && IsPlainNumber(member.name)) {
                    m_places[member.name] = member.value;
                }
            }
        }
        const JsonPlace& place = m_places[ItemKey(index)];
        std::size_t offset = place.begin;
        for (const JsonMember& member : m_context.source.Members(place)) {
            offset = member.name == "name" ? member.value.begin : offset;
        }
        return offset;
    }

    CheckContext& m_context;
    JsonObject m_list;
    const Explanation m_explanation;
    const std::vector<JsonMember> m_members;
    std::map<std::string, JsonPlace> m_places;  // Of the items, once one is asked for.
    int m_count = 0;                            // The items before the first gap.
};

void CheckDocument(CheckContext& context, const std::string& text)
{
    const JsonPlace& root = context.source.Root();
    const std::size_t rest = context.source.SkipBlanks(root.end);
    if (rest < text.size()) {
        context.findings.Add({Kind::kTrailingText, rest, "", "unexpected text after the list",
                              effects::kIgnored, "remove it"});
    }
    if (root.type == JsonType::kNull) {
        context.findings.Add({Kind::kNoItems, root.begin, "",
                              "the list is null, so nothing will be started",
                              effects::kStartsNothing, kWriteList});
        return;
    }
    if (root.type != JsonType::kObject) {
        context.findings.Add({Kind::kListType, root.begin, "", "the top level must be an object",
                              effects::RejectedAtStart(), kWriteList});
        return;
    }
    ListCheck(context, text).Run();
}

void SortAndPlace(Findings& findings, Positions& positions)
{
    std::stable_sort(
        findings.shown.begin(), findings.shown.end(),
        [](const Finding& left, const Finding& right) { return left.offset < right.offset; });
    for (Finding& finding : findings.shown) {
        const JsonPosition position = positions.At(finding.offset);
        finding.line = position.line;
        finding.column = position.column;
    }
}

}  // namespace

Findings CheckList(const std::string& bytes)
{
    Findings findings;
    if (bytes.empty()) {
        findings.Add(
            {Kind::kEmpty, 0, "", "the file is empty", effects::kEndsInSilence, kWriteList});
        return findings;
    }
    const std::string text = bytes.substr(0, bytes.find('\0'));
    const JsonSource source(text);
    const auto encoding = source.Fault() ? FindWideEncoding(bytes) : std::nullopt;
    if (encoding) {
        findings.Add({Kind::kUtf16, 0, "", TextOf(*encoding), effects::RejectedAtStart(),
                      "save it as UTF-8 without a byte order mark"});
        return findings;
    }
    CheckContext context = {source, findings, Positions(source), {}};
    CheckBytes(bytes, text, findings);
    if (source.Fault()) {
        findings.Add(ExplainFault(text, *source.Fault()));
    } else {
        CheckDocument(context, text);
    }
    SortAndPlace(findings, context.positions);
    return findings;
}

}  // namespace launchlist
