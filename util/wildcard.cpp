#include <cstddef>
#include <string_view>

#include "util/util.h"

namespace {

// toupper of the "C" locale, for any code unit: toupper itself accepts only those that fit a byte.
template <typename Char>
Char Upper(Char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<Char>(c - 'a' + 'A') : c;
}

template <typename Char>
class NameMatcher
{
public:
    NameMatcher(const Char* name, bool ignore_case)
        : m_name(name), m_last_dot(m_name.rfind('.')), m_ignore_case(ignore_case)
    {
    }

    // Whether all of `expression` matches the name from `position` to its end.
    bool Matches(const Char* expression, std::size_t position) const
    {
        while (*expression != 0) {
            const Char c = *expression++;
            if (c == '*' || c == '<') {
                if (c == '*' && *expression == 0) {
                    return true;
                }
                const std::size_t end = c == '*' ? m_name.size() : EndOfDottedRun(position);
                for (; position < end; ++position) {
                    if (Matches(expression, position)) {
                        return true;
                    }
                }
            } else if (!Step(c, position)) {
                return false;
            }
        }
        return position == m_name.size();
    }

private:
    // Advances `position` past what `c` matches there; false if there is no match. `c` must not be
    // "*" or "<".
    bool Step(Char c, std::size_t& position) const
    {
        const bool at_dot = At(position) == '.';
        switch (c) {
            case '?':
                ++position;
                return true;
            case '>':
                if (!at_dot || position < m_last_dot) {
                    ++position;
                }
                return true;
            case '"':
                if (at_dot) {
                    ++position;
                }
                return true;
            default:
                return Equal(c, At(position++));
        }
    }

    // The position up to which `<` may match: the last dot. If no dot is ahead, the end of the
    // name, but nothing at its start.
    std::size_t EndOfDottedRun(std::size_t position) const
    {
        if (m_last_dot != m_name.npos && m_last_dot >= position) {
            return m_last_dot;
        }
        return position == 0 ? 0 : m_name.size();
    }

    // `?` and `>` may advance past the name's end; any position there reads as NUL.
    Char At(std::size_t position) const
    {
        return position < m_name.size() ? m_name[position] : Char();
    }

    bool Equal(Char a, Char b) const { return m_ignore_case ? Upper(a) == Upper(b) : a == b; }

    const std::basic_string_view<Char> m_name;
    const std::size_t m_last_dot;  // npos without one.
    const bool m_ignore_case;
};

}  // namespace

bool IsNameInExpression(const wchar_t* expression, const wchar_t* name, bool ignore_case)
{
    return NameMatcher<wchar_t>(name, ignore_case).Matches(expression, 0);
}

bool IsNameInExpressionA(const char* expression, const char* name, bool ignore_case)
{
    return NameMatcher<char>(name, ignore_case).Matches(expression, 0);
}
