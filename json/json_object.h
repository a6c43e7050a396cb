// One JSON value: parsed from text, looked up by path, converted, edited and written.
//
// A JsonObject either owns its value or is a *view* into another document. Lookups never copy: they
// return views, and writing through a view changes the document that it refers to.
//
//     JsonObject document(text.c_str(), length);
//     int port = document.GetObject("server/port");
//     document.GetObject("server")["host"] = std::string("localhost");
//
// Ownership: a view does not own the value it refers to. It is valid while the document exists and
//            the member or element has not been removed.
// Errors:    AERROR values, thrown by value, where a function says so. Exceptions of the JSON
//            library (for a member of a scalar, or an impossible conversion) pass through.
// Threads:   a document and all views into it may be used by one thread at a time.
// Const:     lookups and conversions are not const, since the JSON library may add members to the
//            value. The product's components were compiled against this class: the destructor must
//            stay its only virtual function.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "json/aerror.h"

class JsonObject
{
public:
    // Owns the value parsed from exactly `length` bytes at `text`, which must not be null. Text
    // after the first complete value is ignored, and comments are dropped.
    // Throws AERROR_PARSE_FAILED if the reader rejects the text.
    JsonObject(const char* text, unsigned int length);

    // Owns the value parsed from the NUL-terminated `text`, with its comments; a null `text` gives
    // the null value. Throws AERROR_PARSE_FAILED if the reader rejects the text.
    JsonObject(const char* text);

    // A view of `value`.
    JsonObject(Json::Value& value);

    // If `other` owns data: a deep copy with its comments. If `other` is a view *or owns null*: a
    // view of the value that `other` refers to, which in the latter case must not outlive `other`.
    // The product's components pass views by value, so a copy of a view must stay a view.
    JsonObject(const JsonObject& other);

    virtual ~JsonObject() = default;

    // Owns an empty JSON object, "{}".
    static JsonObject GetEmptyObject();

    // From an object that owns data: this object becomes the owner of a deep copy, and a document
    // that it viewed is unchanged. From a view, or an object that owns null: replaces the value
    // that this object refers to by a deep copy, in the viewed document if this object is a view.
    // Both copies include the comments.
    JsonObject& operator=(const JsonObject& other);

    // Replaces the value by a string that holds all of `text`, NULs included.
    JsonObject& operator=(std::string text);

    // A view of the value at `path`: member names separated by "/". Empty names are skipped, so a
    // path without names gives the value itself. Throws AERROR_NOT_FOUND if a name is missing.
    JsonObject GetObject(const char* path);

    // Whether every name of `path` exists.
    bool HasObject(const char* path);

    // A view of member `key` or element `index`. Before that, creates a missing member as null,
    // extends an array to hold `index`, and turns a null value into an object or array.
    JsonObject operator[](const char* key);
    JsonObject operator[](int index);

    // The number of elements or members; 0 for a scalar.
    unsigned int GetArraySize();

    // Whether the value is not null.
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
    // from_bytes error") if the text is not UTF-8.
    operator std::wstring();

    // Sets member `key` to a deep copy of the value that `item` refers to, with its comments; it
    // may be this document or a part of it. Returns true.
    bool Insert(const char* key, const JsonObject& item);

    // Sets member `key` to all of `text` in UTF-8, NULs included. Returns true. If `text` holds
    // anything but Unicode characters, throws std::range_error("wstring_convert: to_bytes error")
    // and leaves the document unchanged.
    bool Insert(const char* key, const std::wstring& text);

    // Appends all of `text`, NULs included, or a deep copy of the value that `item` refers to.
    // Returns true. A temporary JsonObject does not bind to `item`: it is converted to its text.
    bool InsertArrayItem(std::string text);
    bool InsertArrayItem(JsonObject& item);

    // Removes element `index`, cut to 32 bits: 2^32 removes element 0. Returns whether the element
    // existed; false if the value is not an array.
    bool RemoveArrayItem(unsigned long index);

    // Removes member `key`. Returns whether the member existed; false if the value is not an
    // object.
    bool Remove(const char* key);

    // The names of the members, in ascending order of their bytes; none for null.
    std::vector<std::string> GetKeys();

    // A view of the same value, despite the name. For a copy, assign it to an owning object.
    // The product's components write through the result, so it must stay a view.
    JsonObject Copy();

    // The value as JSON: on one line without comments, or indented with the document's comments,
    // without white space at either end. Strings and member names are written as the stored bytes,
    // whether they are UTF-8 or not; only characters that JSON requires to be escaped are escaped.
    std::string ToText();
    std::string ToStyledText();

private:
    // The value at `path`, or a null pointer if a name is missing.
    Json::Value* Find(const char* path);

    Json::Value* m_ref;   // The value that every operation acts on; &m_value unless a view.
    Json::Value m_value;  // The value that this object owns; null in a view.
};
