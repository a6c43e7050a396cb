#include "tools/launchlist/list/check.h"

#include <algorithm>

#include "launcher/launch_item.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/list/explain.h"
#include "tools/launchlist/list/item_check.h"
#include "tools/launchlist/list/member_check.h"

namespace launchlist {

namespace {

constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";

void CheckBytes(const std::string& bytes, const std::string& text, Findings& findings)
{
    if (text.size() < bytes.size()) {
        findings.push_back({Severity::kWarning, "zero-byte", text.size(), "", "a zero byte",
                            "the list ends here; what follows is not read", "remove the byte"});
    }
    std::size_t bad = 0;
    if (!is_utf8(text, &bad)) {
        findings.push_back({Severity::kWarning, "not-utf8", bad, "", "not UTF-8",
                            "the bytes are passed on as they are", "save the file as UTF-8"});
    }
}

std::string RemedyFor(const JsonFault& fault, const std::string& text)
{
    if (text.compare(0, 3, kByteOrderMark) == 0) {
        return "save the file without a byte order mark";
    }
    if (fault.depth_limit != 0) {
        return "nest no deeper than " + std::to_string(fault.depth_limit) +
               " levels; an item needs two";
    }
    const auto tells_of = [&](const char* words) {
        return fault.message.find(words) != std::string::npos;
    };
    if (tells_of("Missing ':'")) {
        return "write a colon behind the name";
    }
    if (tells_of("Missing ',' or")) {
        return "write a comma before the next one, or the closing bracket";
    }
    if (tells_of("object member name")) {
        return "write names in double quotes, no comma behind the last member, and a \"}\"";
    }
    if (tells_of("escape")) {
        return "write a backslash as two";
    }
    return "write a complete JSON value here";
}

void CheckFault(const JsonFault& fault, const std::string& text, Findings& findings)
{
    const bool too_deep = fault.depth_limit != 0;
    findings.push_back({Severity::kError, too_deep ? "too-deep" : "syntax", fault.offset, "",
                        too_deep ? fault.message : "not JSON: " + fault.message, kRefusedAtStart,
                        RemedyFor(fault, text)});
}

// How the launcher writes a number: digits, without a zero in front.
bool IsNumber(const std::string& name)
{
    return !name.empty() && name.find_first_not_of("0123456789") == std::string::npos &&
           (name == "0" || name[0] != '0');
}

// What a writer may have meant as a number: "01", "+1", "1 ", "1.0".
bool ResemblesNumber(const std::string& name)
{
    return name.find_first_of("0123456789") != std::string::npos &&
           name.find_first_not_of("0123456789+-. \t") == std::string::npos;
}

// Whether `name` is the number of an item before `count`; if so, `index` is that number.
bool IsBefore(const std::string& name, int count, int& index)
{
    if (name.size() > 9) {
        return false;
    }
    index = std::stoi(name);
    return index < count;
}

class ListCheck
{
public:
    ListCheck(const JsonSource& source, const std::string& text, Findings& findings)
        : m_source(source),
          m_list(text.c_str(), static_cast<unsigned int>(text.size())),
          m_walk(ExplainList(text)),
          m_findings(findings)
    {
        while (HasItem(m_list, m_count)) {
            ++m_count;
        }
    }

    void Run()
    {
        const std::vector<JsonMember> members = m_source.Members(m_source.Root());
        for (const JsonMember& member : members) {
            const std::string path = MemberPath("", member.name);
            if (!IsNumber(member.name)) {
                CheckStrange(member, path);
            } else if (member.replaced) {
                Add(Severity::kError, "item-twice", member.name_begin, path,
                    "item " + quoted(member.name) + " is written again further down",
                    "the later one replaces it: this one never runs",
                    "give every item a number of its own");
            } else {
                CheckNumbered(member, path);
            }
        }
        if (members.empty()) {
            Add(Severity::kWarning, "no-items", m_source.Root().begin, "", "the list has no items",
                kStartsNothing, "write the first item as member \"0\"");
        }
    }

private:
    void Add(Severity severity, const char* kind, std::size_t offset, const std::string& path,
             const std::string& message, const std::string& effect, const std::string& remedy)
    {
        m_findings.push_back({severity, kind, offset, path, message, effect, remedy});
    }

    void CheckStrange(const JsonMember& member, const std::string& path)
    {
        const std::string name = quoted(member.name);
        if (ResemblesNumber(member.name)) {
            Add(Severity::kError, "item-number", member.name_begin, path,
                name + " is not how an item is numbered", "the item is never seen",
                "write the number in digits alone, without zeros in front");
        } else {
            Add(Severity::kWarning, "unknown-member", member.name_begin, path,
                "unknown member " + name, "it is ignored",
                "remove it; items are the members \"0\", \"1\" and so on");
        }
    }

    void CheckNumbered(const JsonMember& member, const std::string& path)
    {
        int index = 0;
        const bool is_seen = IsBefore(member.name, m_count, index);
        if (!is_seen) {
            Add(Severity::kError, "item-unreached", member.name_begin, path,
                "item " + quoted(member.name) + " is never seen: there is no item \"" +
                    ItemKey(m_count) + "\"",
                m_count == 0 ? kStartsNothing : kEndsWalk,
                "number the items from \"0\" on, without a gap");
        }
        const std::size_t first = m_findings.size();
        ItemToCheck item{m_source, member, m_list[member.name.c_str()], path};
        CheckItem(item, m_findings);
        if (!is_seen) {
            ReplaceEffects(m_findings, first, kNotSeen);
        } else if (static_cast<std::size_t>(index) >= m_walk.steps.size()) {
            ReplaceEffects(m_findings, first, kNotReached);
        } else {
            CheckNameOfItsOwn(member, m_walk.steps[static_cast<std::size_t>(index)]);
        }
    }

    // Of two items of one name, the second one's start is the first one's end.
    void CheckNameOfItsOwn(const JsonMember& member, const Step& step)
    {
        if (!step.replaced) {
            return;
        }
        std::size_t offset = member.value.begin;
        for (const JsonMember& part : m_source.Members(member.value)) {
            offset = part.name == "name" ? part.value.begin : offset;
        }
        const std::string earlier = "item \"" + ItemKey(*step.replaced) + "\"";
        Add(Severity::kError, "name-twice", offset, MemberPath("", member.name) + "/name",
            "the name " + quoted(*step.name) + " is that of " + earlier + ", too",
            earlier + " is ended when the walk comes here: " + kKilledEarly,
            "give every item a name of its own");
    }

    const JsonSource& m_source;
    JsonObject m_list;
    const Walk m_walk;
    Findings& m_findings;
    int m_count = 0;  // The items before the first gap.
};

void CheckDocument(const JsonSource& source, const std::string& text, Findings& findings)
{
    const JsonPlace& root = source.Root();
    const std::size_t rest = source.SkipBlanks(root.end);
    if (rest < text.size()) {
        findings.push_back({Severity::kWarning, "text-after-list", rest, "", "text behind the list",
                            "it is ignored", "remove it"});
    }
    if (root.type == JsonType::kNull) {
        findings.push_back({Severity::kWarning, "no-items", root.begin, "", "the list is null",
                            kStartsNothing, "write an object with the items \"0\", \"1\", ..."});
        return;
    }
    if (root.type != JsonType::kObject) {
        findings.push_back({Severity::kError, "list-type", root.begin, "", "the list is no object",
                            kRefusedAtStart, "write an object with the items \"0\", \"1\", ..."});
        return;
    }
    ListCheck(source, text, findings).Run();
}

void SortAndPlace(const JsonSource& source, Findings& findings)
{
    std::stable_sort(
        findings.begin(), findings.end(),
        [](const Finding& left, const Finding& right) { return left.offset < right.offset; });
    JsonPosition position;
    for (Finding& finding : findings) {
        position = source.Position(finding.offset, position);
        finding.line = position.line;
        finding.column = position.column;
    }
}

}  // namespace

Findings CheckList(const std::string& bytes)
{
    Findings findings;
    if (bytes.empty()) {
        findings.push_back({Severity::kError, "empty", 0, "", "the file is empty", kEndsInSilence,
                            "write an object with the items \"0\", \"1\", ..."});
        return findings;
    }
    const std::string text = bytes.substr(0, bytes.find('\0'));
    CheckBytes(bytes, text, findings);
    const JsonSource source(text);
    if (source.Fault()) {
        CheckFault(*source.Fault(), text, findings);
    } else {
        CheckDocument(source, text, findings);
    }
    SortAndPlace(source, findings);
    return findings;
}

}  // namespace launchlist
