// Making untrusted text safe to show.
//
// A list or a log may contain anything: control sequences, ill-formed UTF-8, characters that change
// the direction of a line. None of it may reach a terminal, a page or a program's output unchanged.
// The result of every function depends on its arguments alone, apart from the locale in
// display_width.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace launchlist {

// `text` with every control, invisible and direction-changing character and every ill-formed byte
// written as an escape: "\n", "\x1b", "\u{202e}". Everything else is kept, including backslashes.
std::string printable(const std::string& text);

// printable(text) in quotes, cut off after 80 characters.
std::string quoted(const std::string& text);

// `text` as one word of a POSIX shell, which expands to exactly the same bytes. What is not
// printable is written as "$(printf '...')" with octal escapes; only a line feed at the end of the
// text, which a command substitution would drop, is written as a line feed in quotes.
std::string shell_word(const std::string& text);

// JSON text with the same characters written as \uXXXX inside its strings, which keeps its values;
// ill-formed bytes become U+FFFD.
std::string safe_json(const std::string& json);

// `text` as a JSON string that is safe to show.
std::string json_string(const std::string& text);

// printable(text) escaped for an HTML element or a quoted attribute.
std::string html(const std::string& text);

// The number of terminal columns that `text`, which must be printable, takes.
std::size_t display_width(const std::string& text);

// `text` padded with blanks to `width` columns, on the right or on the left.
std::string pad_right(const std::string& text, std::size_t width);
std::string pad_left(const std::string& text, std::size_t width);

// "1 restart", "2 restarts".
std::string counted(std::size_t count, const std::string& noun);

// Whether `text` is well-formed UTF-8; if not, `*first_bad` receives the offset of the first
// ill-formed byte.
bool is_utf8(const std::string& text, std::size_t* first_bad = nullptr);

// The one of `words` that `text` is most likely a misspelling of, ignoring case; "" if all differ
// from it by more than two characters.
std::string closest_word(const std::string& text, const std::vector<std::string>& words);

}  // namespace launchlist
