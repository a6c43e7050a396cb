#include "tools/launchlist/list/item_fix.h"

#include <algorithm>
#include <optional>
#include <set>

#include "tools/launchlist/list/argument_vector.h"
#include "tools/launchlist/list/item_number.h"

namespace launchlist {

namespace {

constexpr char kBlanks[] = " \t";
constexpr char kWhiteSpace[] = " \t\r\n";

bool IsLineEnd(char c)
{
    return c == '\n' || c == '\r';
}

// Where the line of `offset` begins, if only blanks precede `offset` on it.
std::optional<std::size_t> LineStart(const std::string& text, std::size_t offset)
{
    while (offset > 0 && (text[offset - 1] == ' ' || text[offset - 1] == '\t')) {
        --offset;
    }
    return offset == 0 || IsLineEnd(text[offset - 1]) ? std::optional<std::size_t>(offset)
                                                      : std::nullopt;
}

// The line end that starts at `offset`; "" if there is none.
std::string LineEndAt(const std::string& text, std::size_t offset)
{
    if (offset >= text.size() || !IsLineEnd(text[offset])) {
        return "";
    }
    return text.compare(offset, 2, "\r\n") == 0 ? "\r\n" : text.substr(offset, 1);
}

// The white space that precedes `offset` up to and including the preceding line end; one blank if
// there is anything else on the line.
std::string Separator(const std::string& text, std::size_t offset)
{
    const std::optional<std::size_t> start = LineStart(text, offset);
    if (!start || *start == 0) {
        return " ";
    }
    const bool has_two = *start >= 2 && text.compare(*start - 2, 2, "\r\n") == 0;
    const std::size_t begin = *start - (has_two ? 2 : 1);
    return text.substr(begin, offset - begin);
}

// What is removed with the member whose name begins at `begin` and whose comma ends at `end`: the
// whole lines, or the blanks after it.
TextEdit Removal(const std::string& text, std::size_t begin, std::size_t end)
{
    end = std::min(text.find_first_not_of(kBlanks, end), text.size());
    const std::optional<std::size_t> start = LineStart(text, begin);
    const std::string line_end = LineEndAt(text, end);
    if (start && !line_end.empty()) {
        begin = *start;
        end += line_end.size();
    }
    return {begin, end - begin, ""};
}

bool IsScalar(const JsonPlace& value)
{
    return value.type == JsonType::kString || value.type == JsonType::kNumber ||
           value.type == JsonType::kBoolean;
}

const JsonMember* Find(const std::vector<JsonMember>& members, const std::string& name)
{
    const auto found = std::find_if(
        members.begin(), members.end(),
        [&name](const JsonMember& member) { return member.name == name && !member.replaced; });
    return found != members.end() ? &*found : nullptr;
}

class ItemFix
{
public:
    ItemFix(const ListText& list, const JsonPlace& item, TextEdits& edits)
        : m_list(list), m_members(list.source.Members(item)), m_edits(edits)
    {
    }

    void Run()
    {
        RemoveReplaced(m_list, m_members, m_edits);
        m_args = Find(m_members, "args");
        if (m_args != nullptr && m_args->value.type == JsonType::kArray) {
            FixArray();
        } else if (m_args != nullptr && m_args->value.type == JsonType::kObject) {
            FixArguments();
        }
        FixCount();
    }

private:
    void FixArray()
    {
        const std::vector<JsonPlace> elements = m_list.source.Elements(m_args->value);
        if (!IsPossibleCount(elements.size()) ||
            !std::all_of(elements.begin(), elements.end(), IsScalar)) {
            return;
        }
        m_edits.push_back({m_args->value.begin, 1, "{"});
        for (std::size_t i = 0; i < elements.size(); ++i) {
            m_edits.push_back({elements[i].begin, 0, "\"" + std::to_string(i) + "\": "});
        }
        m_edits.push_back({m_args->value.end - 1, 1, "}"});
        m_count = elements.size();
    }

    void FixArguments()
    {
        const std::vector<JsonMember> members = m_list.source.Members(m_args->value);
        RemoveReplaced(m_list, members, m_edits);
        std::set<std::string> numbers;
        for (const JsonMember& member : members) {
            if (member.replaced) {
                continue;
            }
            const std::optional<std::string> number = NumberMeant(member.name);
            if (!number || !IsScalar(member.value) || !numbers.insert(*number).second) {
                return;
            }
        }
        // As many different numbers as there are numbers up to the largest.
        if (!IsPossibleCount(numbers.size()) ||
            std::any_of(numbers.begin(), numbers.end(), [&numbers](const std::string& number) {
                return !IsLessNumber(number, std::to_string(numbers.size()));
            })) {
            return;
        }
        for (const JsonMember& member : members) {
            if (!member.replaced) {
                Rename(member, *NumberMeant(member.name), m_edits);
            }
        }
        m_count = numbers.size();
    }

    void FixCount()
    {
        const JsonMember* argc = Find(m_members, "argc");
        if (argc == nullptr) {
            if (m_count.value_or(0) > 0) {
                m_edits.push_back({m_args->name_begin, 0,
                                   "\"argc\": " + std::to_string(*m_count) + "," +
                                       Separator(m_list.text, m_args->name_begin)});
            }
            return;
        }
        const std::string written = m_list.source.Written(argc->value);
        std::string count = written;
        if (argc->value.type == JsonType::kString) {
            const std::optional<std::string> number = CountInString(argc->value);
            if (!number) {
                return;
            }
            count = *number;
        } else if (argc->value.type == JsonType::kArray || argc->value.type == JsonType::kObject ||
                   written[0] == '-') {
            return;
        }
        if (m_count) {
            count = std::to_string(*m_count);
        }
        if (count != written) {
            m_edits.push_back({argc->value.begin, argc->value.end - argc->value.begin, count});
        }
    }

    // The number of arguments that the string at `place` can only stand for.
    std::optional<std::string> CountInString(const JsonPlace& place) const
    {
        const std::optional<std::string> number = NumberMeant(m_list.source.String(place));
        return number && !IsLessNumber(std::to_string(kMaxArgumentCount), *number) ? number
                                                                                   : std::nullopt;
    }

    static bool IsPossibleCount(std::size_t count)
    {
        return count <= static_cast<std::size_t>(kMaxArgumentCount);
    }

    const ListText& m_list;
    const std::vector<JsonMember> m_members;
    TextEdits& m_edits;
    const JsonMember* m_args = nullptr;
    std::optional<std::size_t> m_count;  // Of the arguments, if they leave no doubt.
};

}  // namespace

void FixItem(const ListText& list, const JsonPlace& item, TextEdits& edits)
{
    ItemFix(list, item, edits).Run();
}

void RemoveReplaced(const ListText& list, const std::vector<JsonMember>& members, TextEdits& edits)
{
    for (const JsonMember& member : members) {
        const std::size_t comma = list.source.SkipBlanks(member.value.end);
        // Some versions of jsoncpp accept another token instead of the comma.
        if (!member.replaced || list.text.compare(comma, 1, ",") != 0) {
            continue;
        }
        if (list.text.find_first_not_of(kWhiteSpace, member.value.end) == comma) {
            edits.push_back(Removal(list.text, member.name_begin, comma + 1));
        } else {  // A comment, which stays.
            edits.push_back({member.name_begin, member.value.end - member.name_begin, ""});
            edits.push_back({comma, 1, ""});
        }
    }
}

void Rename(const JsonMember& member, const std::string& name, TextEdits& edits)
{
    if (member.name != name) {
        edits.push_back(
            {member.name_begin, member.name_end - member.name_begin, "\"" + name + "\""});
    }
}

}  // namespace launchlist
