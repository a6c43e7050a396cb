// Text from outside, made fit to be shown.
//
// What stands in a list or a log may hold anything: control sequences, ill-formed UTF-8, marks that
// turn the direction of a line. None of it may reach a terminal, a page or a program's output as it
// is. Every function here is a pure function of its arguments.
#pragma once

#include <cstddef>
#include <string>

namespace launchlist {

// `text` with every control, invisible and direction-changing character and every ill-formed byte
// written as an escape: "\n", "\x1b", "\u{202e}". Everything else, backslashes too, stays.
std::string printable(const std::string& text);

// printable(text) in quotes, cut after some 80 characters.
std::string quoted(const std::string& text);

// `text` as one word of a POSIX shell. What is not printable comes out in the $'...' form, so that
// the word is safe to show and still gives exactly the same bytes.
std::string shell_word(const std::string& text);

// Finished JSON text with the same characters as \uXXXX inside its strings; ill-formed bytes become
// U+FFFD. It reads as the same values.
std::string safe_json(const std::string& json);

// printable(text) for the inside of an HTML element or a quoted attribute.
std::string html(const std::string& text);

// How many columns `text`, which is printable, takes in a terminal.
std::size_t display_width(const std::string& text);

// `text` filled with blanks up to `width` columns, on the right or on the left.
std::string pad_right(const std::string& text, std::size_t width);
std::string pad_left(const std::string& text, std::size_t width);

// "1 restart", "2 restarts".
std::string counted(std::size_t count, const std::string& noun);

// Whether `text` is well-formed UTF-8; if not, `*first_bad` is where it is not.
bool is_utf8(const std::string& text, std::size_t* first_bad = nullptr);

}  // namespace launchlist
