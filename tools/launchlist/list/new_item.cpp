#include "tools/launchlist/list/new_item.h"

#include "json/json_source.h"
#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/item_number.h"

namespace launchlist {

namespace {

// How the members of an object are laid out.
struct Layout
{
    std::string line_end;  // "" to write everything on one line.
    std::string indent;    // Of the item.
    std::string unit;      // What each further level adds.
};

// The decimal number after `number`, which may have any number of digits.
std::string NumberAfter(std::string number)
{
    for (std::size_t i = number.size(); i-- > 0;) {
        if (number[i] != '9') {
            ++number[i];
            return number;
        }
        number[i] = '0';
    }
    return "1" + number;
}

std::string ArgumentsText(const std::vector<std::string>& arguments)
{
    std::string text;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        text += (i == 0 ? " \"" : ", \"") + std::to_string(i) + "\": " + json_string(arguments[i]);
    }
    return "{" + text + " }";
}

std::string Format(const NewItem& item, const Layout& layout)
{
    std::vector<std::string> members = {"\"name\": " + json_string(item.name),
                                        "\"program\": " + json_string(item.program)};
    if (!item.arguments.empty()) {
        members.push_back("\"argc\": " + std::to_string(item.arguments.size()));
        members.push_back("\"args\": " + ArgumentsText(item.arguments));
    }
    const bool has_lines = !layout.line_end.empty();
    const std::string end = has_lines ? layout.line_end + layout.indent : " ";
    std::string text = "{";
    for (std::size_t i = 0; i < members.size(); ++i) {
        text += (i == 0 ? "" : ",") + end + (has_lines ? layout.unit : "") + members[i];
    }
    return text + end + "}";
}

// The line end with which the line of `offset` begins, and the offset after it; an empty line end
// if `offset` is on the first line.
std::string LineEndBefore(const std::string& text, std::size_t offset, std::size_t& line_begin)
{
    const std::size_t last = offset > 0 ? text.find_last_of("\r\n", offset - 1) : std::string::npos;
    line_begin = last == std::string::npos ? 0 : last + 1;
    if (last == std::string::npos) {
        return "";
    }
    return last > 0 && text.compare(last - 1, 2, "\r\n") == 0 ? "\r\n" : text.substr(last, 1);
}

// The blanks before `offset` on its line; empty if there is anything else on it.
std::optional<std::string> IndentOf(const std::string& text, std::size_t offset)
{
    std::size_t begin = 0;
    LineEndBefore(text, offset, begin);
    std::string blanks = text.substr(begin, offset - begin);
    return blanks.find_first_not_of(" \t") == std::string::npos ? std::optional(blanks)
                                                                : std::nullopt;
}

std::string NextNumber(const std::vector<JsonMember>& members)
{
    std::string next = "0";
    for (const JsonMember& member : members) {
        const std::optional<std::string> number = NumberMeant(member.name);
        if (number && !IsLessNumber(*number, next)) {
            next = NumberAfter(*number);
        }
    }
    return next;
}

// The layout of a list whose "}" is at `close`.
Layout LayoutOf(const std::string& text, std::size_t close, const std::vector<JsonMember>& members)
{
    std::size_t line_begin = 0;
    const std::string line_end = LineEndBefore(text, close, line_begin);
    const std::optional<std::string> outer = IndentOf(text, close);
    if (line_end.empty() || !outer) {
        return {};
    }
    Layout layout = {line_end, *outer + "  ", "  "};
    const std::optional<std::string> inner =
        members.empty() ? std::nullopt : IndentOf(text, members.back().name_begin);
    if (inner) {
        layout.indent = *inner;
        const bool is_deeper =
            inner->size() > outer->size() && inner->compare(0, outer->size(), *outer) == 0;
        layout.unit = is_deeper ? inner->substr(outer->size()) : "  ";
    }
    return layout;
}

}  // namespace

std::string ItemText(const NewItem& item)
{
    return Format(item, {"\n", "", "  "});
}

std::optional<Appended> AppendItem(const std::string& bytes, const NewItem& item)
{
    const std::string text = bytes.substr(0, bytes.find('\0'));
    const JsonSource source(text);
    if (source.Fault() || source.Root().type != JsonType::kObject) {
        return std::nullopt;
    }
    const std::size_t close = source.Root().end - 1;
    const std::vector<JsonMember> members = source.Members(source.Root());
    Appended appended;
    appended.number = NextNumber(members);
    if (!members.empty()) {
        const std::size_t end = members.back().value.end;
        if (source.SkipBlanks(end) != close) {
            return std::nullopt;  // Some versions of jsoncpp accept a comma there.
        }
        appended.edits.push_back({end, 0, ","});
    }
    const Layout layout = LayoutOf(text, close, members);
    std::string member = "\"" + appended.number + "\": " + Format(item, layout);
    std::size_t place = close;
    if (!layout.line_end.empty()) {  // On its own lines before that of the "}".
        LineEndBefore(text, close, place);
        member = layout.indent + member + layout.line_end;
    } else {
        const bool has_blank = close > 0 && (text[close - 1] == ' ' || text[close - 1] == '\n');
        member = (members.empty() || has_blank ? "" : " ") + member + (has_blank ? " " : "");
    }
    appended.edits.push_back({place, 0, member});
    return appended;
}

}  // namespace launchlist
