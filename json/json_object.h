// One JSON value: parsed from text, looked up by path, converted, edited and written.
//
// A JsonObject either owns its value or is a *view* into another document. Lookups never copy: they
// give views, and writing through a view changes the document that it looks into.
//
//     JsonObject document(text.c_str(), length);
//     int port = document.GetObject("server/port");
//     document.GetObject("server")["host"] = std::string("localhost");
//
// Ownership: a view neither keeps nor frees what it looks at. It is valid while its document lives
//            and the member or element has not been removed.
// Errors:    AERROR values, thrown by value, where a function says so. What the JSON library raises
//            (a member of a scalar, a conversion that makes no sense) passes through unchanged.
// Threads:   a document and all views into it belong to one thread at a time.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "json/aerror.h"

class JsonObject
{
public:
    // Owns the value parsed from exactly `length` bytes at `text`, which must not be null; text
    // behind the first complete value is ignored, comments are dropped.
    // Throws AERROR_PARSE_FAILED when the reader rejects the text.
    JsonObject(const char* text, unsigned int length);

    // Owns the value parsed from the NUL-terminated `text`, with its comments; a null `text` gives
    // the null value. Throws AERROR_PARSE_FAILED when the reader rejects the text.
    JsonObject(const char* text);

    // A view of `value`.
    JsonObject(Json::Value& value);

    // A deep copy of an object that owns data; a view of what `other` refers to if `other` is a
    // view *or owns null*. In the second case the copy must not outlive `other`.
    JsonObject(const JsonObject& other);

    virtual ~JsonObject() = default;

    // Owns an empty JSON object, "{}".
    static JsonObject GetEmptyObject();

    // From an object that owns data: this object owns a deep copy; a document that it viewed is
    // left untouched. From a view, or an object that owns null: a deep copy is written through,
    // into the viewed document if this is a view.
    JsonObject& operator=(const JsonObject& other);

    // Replaces the value referred to by a string that holds all of `text`, NULs included.
    JsonObject& operator=(std::string text);

    // A view of the value at `path`: member names separated by "/", empty ones skipped, so a path
    // without names is the value itself. Throws AERROR_NOT_FOUND when a name is missing.
    JsonObject GetObject(const char* path);

    // Whether every name of `path` is there.
    bool HasObject(const char* path);

    // A view of member `key` or element `index`. A missing member is created as null first; an
    // array first grows to hold `index`; a null value becomes an object or array.
    JsonObject operator[](const char* key);
    JsonObject operator[](int index);

    // The number of elements or members; 0 for a scalar.
    unsigned int GetArraySize();

    // Whether the value is anything but null.
    bool IsValid();

    bool IsArray();

    // The value as text, up to its first NUL.
    operator std::string();

    operator unsigned long long();
    operator long long();
    operator long();
    operator double();
    operator bool();

    // The low 32 bits of the 64-bit value: 2^32 + 5 reads as 5, without an error.
    operator int();
    operator AERROR();

    // The value as wide text, up to its first NUL. Throws std::range_error("wstring_convert:
    // from_bytes error") when the text is not UTF-8.
    operator std::wstring();

    // Sets member `key` to a deep copy of what `item` refers to, which may be a part of this
    // document or the whole of it. Always true.
    bool Insert(const char* key, const JsonObject& item);

    // Sets member `key` to all of `text` in UTF-8, NULs included. Always true. Throws
    // std::range_error("wstring_convert: to_bytes error") before the document is touched when
    // `text` holds anything that is not a Unicode character.
    bool Insert(const char* key, const std::wstring& text);

    // Appends all of `text`, NULs included, or a deep copy of what `item` refers to. Always true.
    // A temporary is no `item`: it is converted and appended as its text.
    bool InsertArrayItem(std::string text);
    bool InsertArrayItem(JsonObject& item);

    // Removes element `index`, of which the low 32 bits count: 2^32 removes element 0. Whether
    // there was one; a value that is no array has none.
    bool RemoveArrayItem(unsigned long index);

    // Removes member `key`. Whether there was one; a value that is no object has none.
    bool Remove(const char* key);

    // The names of the members, ascending by their bytes; none for null.
    std::vector<std::string> GetKeys();

    // A view of the same value, in spite of the name. Assign it to an owning object for a copy.
    JsonObject Copy();

    // The value as JSON, in one line without comments, or indented with the document's comments;
    // no white space at either end. Strings and member names leave as the bytes stored, whether
    // they are UTF-8 or not; only what JSON must not hold as it is gets escaped.
    std::string ToText();
    std::string ToStyledText();

private:
    // The value at `path`, or null when a name of it is missing.
    Json::Value* Find(const char* path);

    Json::Value* m_ref;   // What every operation acts on: &m_value, or a value elsewhere (view).
    Json::Value m_value;  // What this object owns; null in a view.
};
