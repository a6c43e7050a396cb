// A wildcard matcher that fills in a table instead of searching, to compare ours with.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

// The table has one row for each suffix of the expression, from the shortest to the longest. A row
// holds the positions from which that suffix matches the rest of the name. One position after the
// end of the name represents all positions there, which `?` and `>` can reach.
class WildcardReference
{
public:
    static constexpr std::size_t kLongestName = 40;

    // `name` has at most kLongestName characters.
    WildcardReference(const std::string& name, bool ignore_case)
        : m_name(name), m_ignore_case(ignore_case), m_end(name.size())
    {
    }

    bool Matches(const std::string& expression) const
    {
        Row rest{};
        rest[m_end] = true;
        bool is_last = true;
        std::for_each(expression.rbegin(), expression.rend(), [&](char c) {
            Row row{};
            for (std::size_t from = 0; from <= m_end + 1; ++from) {
                row[from] = (c == '*' && is_last) || Cell(c, from, rest);
            }
            rest = row;
            is_last = false;
        });
        return rest[0];
    }

private:
    using Row = std::array<bool, kLongestName + 2>;

    bool Cell(char c, std::size_t from, const Row& rest) const
    {
        const std::size_t next = std::min(from + 1, m_end + 1);
        const bool at_dot = from < m_end && m_name[from] == '.';
        switch (c) {
            case '?':
                return rest[next];
            case '"':
                return rest[at_dot ? next : from];
            case '>':
                return rest[at_dot && LastDot(from) == from ? from : next];
            case '*':
                return Any(rest, from, m_end);
            case '<':
                return Any(rest, from, LessReach(from));
            default:
                return from < m_end && Fold(m_name[from]) == Fold(c) && rest[next];
        }
    }

    // Whether the rest matches from `from` or from a later position up to `last`.
    static bool Any(const Row& rest, std::size_t from, std::size_t last)
    {
        bool any = rest[from];
        for (std::size_t position = from; position <= last; ++position) {
            any = any || rest[position];
        }
        return any;
    }

    std::size_t LessReach(std::size_t from) const
    {
        const std::size_t last_dot = LastDot(from);
        return last_dot != kNone ? last_dot : from == 0 ? 0 : m_end;
    }

    std::size_t LastDot(std::size_t from) const
    {
        std::size_t found = kNone;
        for (std::size_t position = from; position < m_end; ++position) {
            found = m_name[position] == '.' ? position : found;
        }
        return found;
    }

    char Fold(char c) const
    {
        static const std::string kSmall = "abcdefghijklmnopqrstuvwxyz";
        const std::size_t letter = kSmall.find(c);
        return m_ignore_case && letter != kNone ? "ABCDEFGHIJKLMNOPQRSTUVWXYZ"[letter] : c;
    }

    static constexpr std::size_t kNone = std::string::npos;
    const std::string m_name;
    const bool m_ignore_case;
    const std::size_t m_end;
};
