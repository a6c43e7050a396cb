#include "tools/launchlist/list/syntax_check.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <utility>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/effects.h"

namespace launchlist {

namespace {

struct SyntaxError
{
    std::size_t offset = 0;
    std::string message;
    std::string fix;
};

bool IsWordCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '+' || c == '-' ||
           c == '.' || c == '$';
}

std::string LowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// What is wrong with a value or name that is not in quotes; nothing for a number or a literal.
std::optional<SyntaxError> ExplainWord(const std::string& word, std::size_t offset)
{
    const std::string lower = LowerCase(word);
    if (word == "true" || word == "false" || word == "null") {
        return std::nullopt;
    }
    const std::size_t digits = lower[0] == '+' || lower[0] == '-' ? 1 : 0;
    if (lower.compare(digits, 2, "0x") == 0) {
        return SyntaxError{offset, "JSON has no hexadecimal numbers: " + quoted(word),
                           "write it as a decimal number"};
    }
    if (lower.compare(digits, 3, "nan") == 0 || lower.compare(digits, 3, "inf") == 0) {
        return SyntaxError{offset, "JSON has no value " + quoted(word),
                           "write a number, or a string in double quotes"};
    }
    if (word[0] == '+') {
        return SyntaxError{offset, "a number must not start with \"+\": " + quoted(word),
                           "remove the \"+\""};
    }
    if (word[0] == '.') {
        return SyntaxError{offset, "a number must start with a digit: " + quoted(word),
                           "write a \"0\" before the decimal point"};
    }
    if (lower == "true" || lower == "false" || lower == "null") {
        return SyntaxError{offset, quoted(word) + " must be written in lower case",
                           "write " + lower};
    }
    if (std::isalpha(static_cast<unsigned char>(word[0])) != 0 || word[0] == '_' ||
        word[0] == '$') {
        return SyntaxError{offset, quoted(word) + " is not in double quotes",
                           "write strings and member names in double quotes"};
    }
    return std::nullopt;
}

// Reads tokens until one of them is a known mistake, or the place of the fault is passed.
class Scanner
{
public:
    Scanner(const std::string& text, std::size_t fault) : m_text(text), m_fault(fault) {}

    std::optional<SyntaxError> Run()
    {
        while (m_at < m_text.size() && m_at <= m_fault) {
            if (std::isspace(static_cast<unsigned char>(m_text[m_at])) != 0) {
                ++m_at;
            } else if (std::optional<SyntaxError> cause = ReadToken()) {
                return cause;
            }
        }
        // The string before the fault runs over a line end: the quotation mark that seems to close
        // it was meant to open another string.
        return m_long_string;
    }

private:
    std::optional<SyntaxError> ReadToken()
    {
        const std::size_t begin = m_at;
        const char c = m_text[begin];
        if (m_text.compare(begin, 2, "//") == 0) {
            m_at = std::min(m_text.find_first_of("\r\n", begin), m_text.size());
            return std::nullopt;
        }
        if (m_text.compare(begin, 2, "/*") == 0) {
            return ReadComment();
        }
        if (c == '"') {
            return ReadString();
        }
        if (c == '\'') {
            return SyntaxError{begin, "strings must be in double quotes", "write \" instead of '"};
        }
        if (c == '#') {
            return SyntaxError{begin, "a comment must not start with \"#\"",
                               "start it with \"//\""};
        }
        if (IsWordCharacter(c)) {
            while (m_at < m_text.size() && IsWordCharacter(m_text[m_at])) {
                ++m_at;
            }
            return ReadWord(m_text.substr(begin, m_at - begin), begin);
        }
        return ReadSign();
    }

    // `word` ends where the next token begins.
    std::optional<SyntaxError> ReadWord(const std::string& word, std::size_t begin)
    {
        m_comma.reset();
        std::optional<SyntaxError> cause = ExplainWord(word, begin);
        const std::optional<std::size_t> string = std::exchange(m_string, std::nullopt);
        if (!cause || !string) {
            return cause;
        }
        return m_long_string
                   ? m_long_string
                   : SyntaxError{*string,
                                 "the string is followed by " + quoted(word) +
                                     " without a comma or a colon",
                                 "add the quotation mark that is missing at its end, or write "
                                 "\\\" for one inside it"};
    }

    std::optional<SyntaxError> ReadComment()
    {
        const std::size_t close = m_text.find("*/", m_at + 2);
        if (close == std::string::npos) {
            return SyntaxError{m_at, "the comment is not closed", "add \"*/\""};
        }
        m_at = close + 2;
        return std::nullopt;
    }

    std::optional<SyntaxError> ReadString()
    {
        const std::size_t begin = m_at;
        SyntaxError unclosed = {begin, "the string is not closed",
                                "add the missing quotation mark"};
        bool has_line_end = false;
        for (++m_at; m_at < m_text.size() && m_text[m_at] != '"'; ++m_at) {
            has_line_end = has_line_end || m_text[m_at] == '\n' || m_text[m_at] == '\r';
            m_at += m_text[m_at] == '\\' ? 1U : 0U;
        }
        m_comma.reset();
        if (m_at >= m_text.size()) {
            return m_long_string ? m_long_string : unclosed;
        }
        ++m_at;
        m_string = begin;
        unclosed.message = "the string is not closed on the line on which it starts";
        m_long_string = has_line_end ? std::optional<SyntaxError>(unclosed) : std::nullopt;
        return std::nullopt;
    }

    std::optional<SyntaxError> ReadSign()
    {
        const char c = m_text[m_at];
        if (m_comma && (c == '}' || c == ']')) {
            return SyntaxError{*m_comma, "a comma must not follow the last member",
                               "remove the comma"};
        }
        if (c == ',') {
            m_comma = m_at;
        } else {
            m_comma.reset();
        }
        // A string over several lines may be meant, if the text continues as JSON does.
        m_long_string.reset();
        m_string.reset();
        ++m_at;
        return std::nullopt;
    }

    const std::string& m_text;
    const std::size_t m_fault;
    std::size_t m_at = 0;
    std::optional<std::size_t> m_comma;   // The last token, if it is a comma.
    std::optional<std::size_t> m_string;  // The last token, if it is a string.
    std::optional<SyntaxError>
        m_long_string;  // For the last token, if it is a string with a line end.
};

// The reader's own finding in other words.
SyntaxError ExplainMessage(const std::string& message, std::size_t offset)
{
    const struct
    {
        const char* part;
        const char* message;
        const char* fix;
    } kTable[] = {
        {"Missing ':'", "expected \":\" after the member name", "add a colon"},
        {"Missing ',' or '}'", "expected \",\" or \"}\"",
         "add a comma before the next member, or the closing brace"},
        {"Missing ',' or ']'", "expected \",\" or \"]\"",
         "add a comma before the next element, or the closing bracket"},
        {"object member name", "expected a member name in double quotes, or \"}\"",
         "write a member, or the closing brace"},
        {"escape", "a string contains an invalid escape sequence", "write \\\\ for a backslash"},
        {"value, object or array expected", "expected a value", "write a complete JSON value"},
    };
    for (const auto& row : kTable) {
        if (message.find(row.part) != std::string::npos) {
            return {offset, row.message, row.fix};
        }
    }
    return {offset, "not JSON: " + message, "write a complete JSON value"};
}

}  // namespace

Finding ExplainFault(const std::string& text, const JsonFault& fault)
{
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        return {Kind::kByteOrderMark,
                0,
                "",
                "the file starts with a byte order mark",
                effects::RejectedAtStart(),
                "save it as UTF-8 without a byte order mark"};
    }
    if (fault.depth_limit != 0) {
        return {Kind::kTooDeep,
                fault.offset,
                "",
                "arrays or objects are nested too deep",
                effects::RejectedAtStart(),
                "nest at most " + std::to_string(fault.depth_limit) + " levels; an item needs two"};
    }
    std::optional<SyntaxError> cause = Scanner(text, fault.offset).Run();
    if (!cause) {
        cause = ExplainMessage(fault.message, fault.offset);
        if (text.find_first_not_of(" \t\r\n", fault.offset) == std::string::npos) {
            cause->message = "the text ends too early: " + cause->message;
        }
    }
    return {Kind::kSyntax, cause->offset, "", cause->message, effects::RejectedAtStart(),
            cause->fix};
}

}  // namespace launchlist
