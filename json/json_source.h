// The places of values in a JSON text, as the reader behind JsonObject sees them.
//
// For tools that report on a text: JsonObject gives the values, JsonSource their places. It also
// gives members that JsonObject lacks because a later member of the same name replaced them. It
// follows the reader of whichever jsoncpp it is linked with; versions differ in what they accept.
//
//     JsonSource source(text);
//     if (!source.Fault()) {
//         for (const JsonMember& member : source.Members(source.Root())) { ... }
//     }
//
// Threads: an object may be used by one thread at a time.
// Units:   offsets count bytes from the start of the text; lines and columns count from 1.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

enum class JsonType
{
    kNull,
    kBoolean,
    kNumber,
    kString,
    kArray,
    kObject
};

// One value: the offsets of its first byte and of the byte after its last.
struct JsonPlace
{
    std::size_t begin = 0;
    std::size_t end = 0;
    JsonType type = JsonType::kNull;
};

struct JsonMember
{
    std::string name;            // All of it, NULs included.
    std::size_t name_begin = 0;  // The offset of the opening quote.
    std::size_t name_end = 0;    // The offset after the closing quote.
    JsonPlace value;
    bool replaced = false;  // A later member of the same name gives the value.
};

struct JsonFault
{
    std::size_t offset = 0;
    std::string message;
    std::size_t depth_limit = 0;  // Not 0 if values are nested deeper than this many levels.
};

struct JsonPosition
{
    std::size_t offset = 0;
    std::size_t line = 1;
    std::size_t column = 1;  // Counts characters.
};

class JsonSource
{
public:
    explicit JsonSource(std::string text);

    // Why JsonObject rejects the text; empty if it accepts it.
    const std::optional<JsonFault>& Fault() const { return m_fault; }

    // The first complete value; the text after it is not read. There must be no fault.
    const JsonPlace& Root() const { return m_root; }

    // The members of `object`, a place of this text, in the order of the text. Empty if the value
    // there is not an object.
    std::vector<JsonMember> Members(const JsonPlace& object) const;

    // The elements of `array`, a place of this text. Empty if the value there is not an array.
    std::vector<JsonPlace> Elements(const JsonPlace& array) const;

    // The string value at `place`: all of it, NULs included. The value there must be a string.
    std::string String(const JsonPlace& place) const;

    // The source text of `place`.
    std::string Written(const JsonPlace& place) const;

    // The line and column of `offset`. Lines end where the reader ends them: at \n, \r or \r\n.
    // `from` is any known position up to `offset`; it saves counting from the start.
    JsonPosition Position(std::size_t offset, JsonPosition from = {}) const;

    // The first offset from `offset` on that is neither white space nor part of a comment.
    std::size_t SkipBlanks(std::size_t offset) const;

private:
    JsonPlace ReadValue(std::size_t offset, std::string* text) const;
    std::size_t SkipComma(std::size_t offset) const;
    std::size_t SkipString(std::size_t offset) const;
    std::size_t FindTooDeep(std::size_t limit) const;

    std::string m_text;
    std::optional<JsonFault> m_fault;
    JsonPlace m_root;
};
