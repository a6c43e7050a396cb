#include "tools/launchlist/output/unified_diff.h"

#include <algorithm>
#include <vector>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/output/terminal_style.h"

namespace launchlist {

namespace {

// The number of unchanged lines before and after a change.
constexpr std::size_t kContext = 3;

// Consecutive lines that are replaced.
struct Change
{
    std::size_t first = 0;  // The number of the first line, from 0.
    std::size_t end = 0;    // The number of the line after the last; `first` if lines are added.
    std::string text;       // What replaces them.
};

// The text before the edits.
class Lines
{
public:
    explicit Lines(const std::string& text) : m_text(text)
    {
        for (std::size_t at = 0; at < text.size();) {
            m_begins.push_back(at);
            const std::size_t end = text.find('\n', at);
            at = end == std::string::npos ? text.size() : end + 1;
        }
    }

    std::size_t Count() const { return m_begins.size(); }

    // Where line `number` begins; the end of the text for the line after the last.
    std::size_t Begin(std::size_t number) const
    {
        return number < m_begins.size() ? m_begins[number] : m_text.size();
    }

    std::string Text(std::size_t first, std::size_t end) const
    {
        return m_text.substr(Begin(first), Begin(end) - Begin(first));
    }

    // The line that contains `offset`. The end of the text belongs to the last line unless that
    // one is complete.
    std::size_t LineOf(std::size_t offset) const
    {
        if (offset == m_text.size() && (m_text.empty() || m_text.back() == '\n')) {
            return m_begins.size();
        }
        const auto after = std::upper_bound(m_begins.begin(), m_begins.end(), offset);
        return static_cast<std::size_t>(after - m_begins.begin()) - 1;
    }

private:
    const std::string& m_text;
    std::vector<std::size_t> m_begins;
};

// The part of `edits` from `begin` to `end`, which are all in these lines, applied to them.
std::string Replace(const Lines& lines, std::size_t first, std::size_t end,
                    TextEdits::const_iterator edits, TextEdits::const_iterator edits_end)
{
    TextEdits moved(edits, edits_end);
    for (TextEdit& edit : moved) {
        edit.offset -= lines.Begin(first);
    }
    return Apply(moved, lines.Text(first, end));
}

std::vector<Change> FindChanges(const Lines& lines, const TextEdits& edits)
{
    std::vector<Change> changes;
    for (auto begin = edits.begin(); begin != edits.end();) {
        Change change;
        change.first = lines.LineOf(begin->offset);
        change.end = change.first;
        auto end = begin;
        bool is_complete = false;
        while (!is_complete) {
            for (; end != edits.end() && (end == begin || lines.LineOf(end->offset) < change.end);
                 ++end) {
                const std::size_t last =
                    lines.LineOf(end->offset + (end->size > 0 ? end->size - 1 : 0));
                change.end = std::max(change.end, std::min(last + 1, lines.Count()));
            }
            change.text = Replace(lines, change.first, change.end, begin, end);
            // A change that joins its last line with the following one includes that one, too.
            is_complete =
                change.text.empty() || change.text.back() == '\n' || change.end == lines.Count();
            change.end += is_complete ? 0 : 1;
        }
        changes.push_back(std::move(change));
        begin = end;
    }
    return changes;
}

// Appends the lines of `text`, each with `mark` before it.
void AppendLines(std::string& diff, char mark, const std::string& text)
{
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        diff += mark;
        diff.append(text, at, end - at);
        diff += end < text.size() ? "\n" : "\n\\ No newline at end of file\n";
        at = end + 1;
    }
}

std::size_t CountLines(const std::string& text)
{
    return Lines(text).Count();
}

// "12,3": the first line, from 1, and the number of lines. Without lines, the line before them.
std::string Range(std::size_t first, std::size_t count)
{
    return std::to_string(count > 0 ? first + 1 : first) + "," + std::to_string(count);
}

// The part of a diff for the changes from `begin` to `end`, which share their context. `shift` is
// by how much lines have moved down before; it is updated.
std::string Hunk(const Lines& lines, std::vector<Change>::const_iterator begin,
                 std::vector<Change>::const_iterator end, long& shift)
{
    const std::size_t first = begin->first - std::min(begin->first, kContext);
    const std::size_t last = std::min((end - 1)->end + kContext, lines.Count());
    std::string body;
    std::size_t at = first;
    long growth = 0;
    for (auto change = begin; change != end; ++change) {
        AppendLines(body, ' ', lines.Text(at, change->first));
        AppendLines(body, '-', lines.Text(change->first, change->end));
        AppendLines(body, '+', change->text);
        growth += static_cast<long>(CountLines(change->text)) -
                  static_cast<long>(change->end - change->first);
        at = change->end;
    }
    AppendLines(body, ' ', lines.Text(at, last));
    const std::size_t new_first = static_cast<std::size_t>(static_cast<long>(first) + shift);
    const std::size_t new_count =
        static_cast<std::size_t>(static_cast<long>(last - first) + growth);
    shift += growth;
    return "@@ -" + Range(first, last - first) + " +" + Range(new_first, new_count) + " @@\n" +
           body;
}

}  // namespace

std::string UnifiedDiff(const std::string& path, const std::string& text, const TextEdits& edits)
{
    if (edits.empty()) {
        return "";
    }
    const Lines lines(text);
    const std::vector<Change> changes = FindChanges(lines, edits);
    // A tab ends a name that contains blanks.
    const std::string name =
        printable(path) + (path.find(' ') != std::string::npos ? "\t\n" : "\n");
    std::string diff = "--- " + name + "+++ " + name;
    long shift = 0;
    for (auto begin = changes.begin(); begin != changes.end();) {
        auto end = begin + 1;
        while (end != changes.end() && end->first <= (end - 1)->end + 2 * kContext) {
            ++end;
        }
        diff += Hunk(lines, begin, end, shift);
        begin = end;
    }
    return diff;
}

std::string DiffForTerminal(const std::string& diff, bool color)
{
    std::string result;
    for (std::size_t at = 0; at < diff.size();) {
        const std::size_t end = std::min(diff.find('\n', at), diff.size());
        std::string line;
        for (std::size_t from = at; from <= end;) {  // Tabs are the layout of many lists.
            const std::size_t tab = std::min(diff.find('\t', from), end);
            line += printable(diff.substr(from, tab - from)) + (tab < end ? "\t" : "");
            from = tab + 1;
        }
        const Style style = diff[at] == '-' ? Style::kRed : Style::kGreen;
        const bool is_changed = diff[at] == '-' || diff[at] == '+';
        result += diff[at] == '@' ? styled(line, Style::kCyan, color)
                                  : styled(line, style, color && is_changed);
        result += "\n";
        at = end + 1;
    }
    return result;
}

}  // namespace launchlist
