// Where things stand in a JSON text, as the reader behind JsonObject finds them.
//
// For tools that tell people about a text: JsonObject knows the values, this knows their places,
// and every member that was written, also one that a later member of its name has replaced.
//
//     JsonSource source(text);
//     if (!source.Fault()) {
//         for (const JsonMember& member : source.Members(source.Root())) { ... }
//     }
//
// Threads: one object belongs to one thread at a time.
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

// One value: its first byte and the byte behind its last.
struct JsonPlace
{
    std::size_t begin = 0;
    std::size_t end = 0;
    JsonType type = JsonType::kNull;
};

struct JsonMember
{
    std::string name;  // All of it, NULs included.
    std::size_t name_begin = 0;
    JsonPlace value;
    bool replaced = false;  // A later member of the same name stands in the value.
};

struct JsonFault
{
    std::size_t offset = 0;
    std::string message;
    bool too_deep = false;
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

    // Why JsonObject refuses the text; nothing when it takes it.
    const std::optional<JsonFault>& Fault() const { return m_fault; }

    // The first complete value; what follows it is not read. Only without a fault.
    const JsonPlace& Root() const { return m_root; }

    // The members of `object`, a place of this text, in the order in which they were written. Empty
    // for a place that is no object.
    std::vector<JsonMember> Members(const JsonPlace& object) const;

    // The string at `place`, a string of this text: all of it, NULs included.
    std::string String(const JsonPlace& place) const;

    // The text of `place` as it is written.
    std::string Written(const JsonPlace& place) const;

    // Lines end where the reader ends them: at \n, \r or \r\n. A position known already, not behind
    // `offset`, saves counting from the start.
    JsonPosition Position(std::size_t offset, JsonPosition from = {}) const;

    // The first byte at or behind `offset` that is neither white space nor part of a comment.
    std::size_t SkipBlanks(std::size_t offset) const;

private:
    JsonPlace ReadValue(std::size_t offset, std::string* text) const;
    std::size_t SkipComma(std::size_t offset) const;
    std::size_t FindTooDeep() const;

    std::string m_text;
    std::optional<JsonFault> m_fault;
    JsonPlace m_root;
};
