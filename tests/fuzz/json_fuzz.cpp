// Parses, searches, converts, edits and writes JSON documents.
// Input: a line with a path, a line with a text, then the document.
#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <climits>
#include <exception>
#include <optional>

#include "json/json_object.h"
#include "tests/fuzz/fuzz.h"
#include "util/string_util.h"

// See json/json_object.cpp and json/json_object_edit.cpp.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

// Does something that may fail with an error code or with an exception of the JSON library or a
// conversion. Returns whether it succeeded.
template <typename Work>
bool Allowed(const Work& work)
{
    try {
        work();
        return true;
    } catch (AERROR) {
        return false;
    } catch (const std::exception&) {
        return false;
    }
}

JsonObject Parsed(const std::string& text)
{
    return JsonObject(text.data(), static_cast<unsigned int>(text.size()));
}

// Whether the library's writers keep this text; they change any other.
bool IsPlain(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c > 0 && c != '\\'; });
}

// The written text must be readable, and reading and writing it must give the same text.
void CheckWriting(JsonObject& document)
{
    const std::string text = document.ToText();
    Require(text.find('\n') == std::string::npos, "compact text is one line");
    JsonObject again = Parsed(text);
    Require(again.ToText() == text, "compact text is read and written the same");
    const std::string styled = document.ToStyledText();
    JsonObject from_styled = Parsed(styled);
    Require(from_styled.ToText() == text, "indented text has the same content");
}

// For plain text, the layout must be that of the library's writers.
void CheckLayout(const std::string& text)
{
    Json::Value value;
    if (!IsPlain(text) || !Json::Reader().parse(text, value, true)) {
        return;
    }
    JsonObject view(value);
    std::string compact = Json::FastWriter().write(value);
    Require(view.ToText() == trim(compact), "compact text is laid out like the library's");
    std::string styled = Json::StyledWriter().write(value);
    Require(view.ToStyledText() == trim(styled), "indented text is laid out like the library's");
}

// Looking up a path must give the same as looking up its names one after the other.
void CheckLookup(JsonObject& document, const std::string& path)
{
    bool found = false;
    if (!Allowed([&] { found = document.HasObject(path.c_str()); })) {
        return;
    }
    Require(Allowed([&] { document.GetObject(path.c_str()); }) == found,
            "what HasObject promises, GetObject finds");
    if (!found) {
        return;
    }
    std::optional<JsonObject> step(document.Copy());
    std::string name;
    for (const char c : path + "/") {
        if (c != '/') {
            name += c;
        } else if (!name.empty()) {
            step.emplace((*step)[name.c_str()]);
            name.clear();
        }
    }
    Require(step->ToText() == document.GetObject(path.c_str()).ToText(),
            "a path leads where its names lead");
}

// Every conversion may fail; those that succeed must agree with each other.
void CheckConversions(JsonObject& value)
{
    long long number = 0;
    if (Allowed([&] { number = static_cast<long long>(value); })) {
        Require(static_cast<int>(value) == static_cast<int>(number), "int is the low 32 bits");
        Require(static_cast<AERROR>(value) == static_cast<AERROR>(number), "so is an error code");
        Require(static_cast<long>(value) == number, "long is long long");
    }
    Allowed([&] {
        const auto positive = static_cast<unsigned long long>(value);
        Require(positive > LLONG_MAX || static_cast<long long>(positive) == number,
                "unsigned is the same where both can represent it");
    });
    Allowed([&] { static_cast<void>(static_cast<double>(value)); });
    Allowed([&] { static_cast<void>(static_cast<bool>(value)); });
    std::string text;
    if (Allowed([&] { text = static_cast<std::string>(value); })) {
        Require(text.find('\0') == std::string::npos, "text ends before a NUL");
        std::wstring wide;
        if (Allowed([&] { wide = static_cast<std::wstring>(value); })) {
            JsonObject holder = JsonObject::GetEmptyObject();
            holder.Insert("k", wide);
            Require(static_cast<std::string>(holder["k"]) == text, "wide text comes back");
        }
    }
}

void CheckEdits(JsonObject& document, const std::string& text)
{
    const std::string key = UpToNul(text);
    const std::string before = document.ToText();
    if (Allowed([&] { document.Insert(key.c_str(), document); })) {
        Require(document[key.c_str()].ToText() == before, "a document goes into itself as a copy");
        const std::vector<std::string> keys = document.GetKeys();
        Require(std::count(keys.begin(), keys.end(), key) == 1, "a key stands once");
        Require(std::is_sorted(keys.begin(), keys.end()), "keys stand in order");
        Require(document.Remove(key.c_str()) && !document.Remove(key.c_str()),
                "a member is removed once");
    }
    const unsigned int size = document.GetArraySize();
    if (Allowed([&] { document.InsertArrayItem(text); })) {
        Require(document.GetArraySize() == size + 1, "appending adds one element");
        Require(document.RemoveArrayItem(size) && !document.RemoveArrayItem(size),
                "the last element is removed once");
    }
    document = text;
    JsonObject again = Parsed("[" + document.ToText() + "]");
    Require(again[0].ToText() == document.ToText(), "any text is read back");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::string path = UpToNul(input.TakeLine());
    const std::string text = input.TakeLine();
    const std::string json = input.Rest();

    Allowed([&] { CheckLayout(json); });
    std::optional<JsonObject> with_comments;
    if (Allowed([&] { with_comments.emplace(json.c_str()); })) {
        with_comments->ToStyledText();
    }
    std::optional<JsonObject> document;
    if (!Allowed([&] { document.emplace(json.data(), static_cast<unsigned int>(json.size())); })) {
        return 0;
    }
    CheckWriting(*document);
    CheckLookup(*document, path);
    Allowed([&] {
        JsonObject value = document->GetObject(path.c_str());
        CheckConversions(value);
    });
    CheckConversions(*document);
    CheckEdits(*document, text);
    return 0;
}
