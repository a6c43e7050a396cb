#include "json/json_source.h"

#include <json/reader.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>

// json_object.cpp says why the deprecated reader is used.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

// Whether the reader throws on `depth` nested arrays, the innermost of which has an element.
bool IsTooDeep(std::size_t depth)
{
    const std::string text = std::string(depth, '[') + '1' + std::string(depth, ']');
    Json::Reader reader;
    Json::Value value;
    try {
        reader.parse(text, value, false);
        return false;
    } catch (const std::exception&) {
        return true;
    }
}

// The smallest depth at which an array or object that is not empty makes the reader throw. Must be
// called only after the reader has thrown on some text, which shows that there is a limit.
std::size_t DepthLimit()
{
    std::size_t accepted = 0;
    std::size_t rejected = 1;
    while (!IsTooDeep(rejected)) {
        accepted = rejected;
        rejected *= 2;
    }
    while (rejected - accepted > 1) {
        const std::size_t middle = accepted + (rejected - accepted) / 2;
        (IsTooDeep(middle) ? rejected : accepted) = middle;
    }
    return rejected;
}

// Whether the reader takes `token` for a comma between a comment and `rest`.
bool IsComma(const std::string& token, const char* rest)
{
    Json::Reader reader;
    Json::Value value;
    return reader.parse("{\"\":0/**/" + token + rest, value, false);
}

bool IsSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

JsonType TypeOf(const Json::Value& value)
{
    switch (value.type()) {
        case Json::nullValue:
            return JsonType::kNull;
        case Json::booleanValue:
            return JsonType::kBoolean;
        case Json::stringValue:
            return JsonType::kString;
        case Json::arrayValue:
            return JsonType::kArray;
        case Json::objectValue:
            return JsonType::kObject;
        default:
            return JsonType::kNumber;
    }
}

JsonPlace PlaceOf(const Json::Value& value, std::size_t offset)
{
    return {offset + static_cast<std::size_t>(value.getOffsetStart()),
            offset + static_cast<std::size_t>(value.getOffsetLimit()), TypeOf(value)};
}

void MarkReplaced(std::vector<JsonMember>& members)
{
    std::map<std::string, JsonMember*> last;
    for (JsonMember& member : members) {
        JsonMember*& earlier = last[member.name];
        if (earlier != nullptr) {
            earlier->replaced = true;
        }
        earlier = &member;
    }
}

}  // namespace

JsonSource::JsonSource(std::string text) : m_text(std::move(text))
{
    Json::Reader reader;
    Json::Value root;
    try {
        if (reader.parse(m_text.data(), m_text.data() + m_text.size(), root, false)) {
            m_root = PlaceOf(root, 0);
            return;
        }
    } catch (const std::exception&) {
        const std::size_t limit = DepthLimit();
        m_fault = JsonFault{FindTooDeep(limit), "values are nested too deep", limit};
        return;
    }
    m_fault = JsonFault{0, "not a JSON text", 0};
    const auto errors = reader.getStructuredErrors();
    if (!errors.empty()) {
        m_fault->offset = static_cast<std::size_t>(errors.front().offset_start);
        m_fault->message = errors.front().message;
    }
}

// The reader itself reads every name and value, starting at its first byte: it stops after the
// first complete value and reports the place. Only the text between values is skipped here.
std::vector<JsonMember> JsonSource::Members(const JsonPlace& object) const
{
    std::vector<JsonMember> members;
    if (object.type != JsonType::kObject) {
        return members;
    }
    std::size_t offset = SkipBlanks(object.begin + 1);
    while (offset < object.end && m_text[offset] == '"') {
        JsonMember member;
        const JsonPlace name = ReadValue(offset, &member.name);
        member.name_begin = name.begin;
        member.name_end = name.end;
        member.value = ReadValue(SkipBlanks(name.end) + 1, nullptr);
        offset = SkipBlanks(SkipComma(member.value.end));
        members.push_back(std::move(member));
    }
    MarkReplaced(members);
    return members;
}

std::vector<JsonPlace> JsonSource::Elements(const JsonPlace& array) const
{
    std::vector<JsonPlace> elements;
    if (array.type != JsonType::kArray) {
        return elements;
    }
    for (std::size_t offset = SkipBlanks(array.begin + 1); offset + 1 < array.end;) {
        elements.push_back(ReadValue(offset, nullptr));
        offset = SkipBlanks(SkipBlanks(elements.back().end) + 1);
    }
    return elements;
}

std::string JsonSource::String(const JsonPlace& place) const
{
    std::string text;
    ReadValue(place.begin, &text);
    return text;
}

std::string JsonSource::Written(const JsonPlace& place) const
{
    return m_text.substr(place.begin, place.end - place.begin);
}

JsonPosition JsonSource::Position(std::size_t offset, JsonPosition from) const
{
    JsonPosition position = from;
    position.offset = std::min(offset, m_text.size());
    for (std::size_t i = from.offset; i < position.offset; ++i) {
        const char c = m_text[i];
        if (c == '\n' || (c == '\r' && m_text.compare(i + 1, 1, "\n") != 0)) {
            ++position.line;
            position.column = 1;
        } else if ((static_cast<unsigned char>(c) & 0xC0U) != 0x80U) {
            ++position.column;
        }
    }
    return position;
}

std::size_t JsonSource::SkipBlanks(std::size_t offset) const
{
    while (offset < m_text.size()) {
        if (IsSpace(m_text[offset])) {
            ++offset;
        } else if (m_text.compare(offset, 2, "/*") == 0) {
            const std::size_t close = m_text.find("*/", offset + 2);
            offset = close == std::string::npos ? m_text.size() : close + 2;
        } else if (m_text.compare(offset, 2, "//") == 0) {
            offset = std::min(m_text.find_first_of("\r\n", offset), m_text.size());
        } else {
            break;
        }
    }
    return offset;
}

JsonPlace JsonSource::ReadValue(std::size_t offset, std::string* text) const
{
    Json::Reader reader;
    Json::Value value;
    const std::size_t begin = std::min(offset, m_text.size());
    if (!reader.parse(m_text.data() + begin, m_text.data() + m_text.size(), value, false)) {
        throw std::logic_error("the reader rejects a value that it accepted before");
    }
    if (text != nullptr) {
        *text = value.asString();
    }
    return PlaceOf(value, begin);
}

// Returns the offset after the comma that follows the value which ends at `offset`, or the offset
// of the "}". In some versions of jsoncpp any single token may replace a comma that follows a
// comment, even one that is not JSON; the reader decides where such a token ends.
std::size_t JsonSource::SkipComma(std::size_t offset) const
{
    const std::size_t begin = SkipBlanks(offset);
    if (begin >= m_text.size() || m_text[begin] == '}') {
        return begin;
    }
    if (m_text[begin] == ',') {
        return begin + 1;
    }
    std::size_t end = m_text[begin] == '"' ? SkipString(begin) : begin + 1;
    for (; end < m_text.size(); ++end) {
        const char next = m_text[std::min(SkipBlanks(end), m_text.size() - 1)];
        const std::string token = m_text.substr(begin, end - begin);
        if ((next == '"' && IsComma(token, "\"\":0}")) || (next == '}' && IsComma(token, "}"))) {
            break;
        }
    }
    return end;
}

// The offset after the string at `offset`. Unlike ReadValue, accepts any escape sequence, as the
// reader does for a string that replaces a comma.
std::size_t JsonSource::SkipString(std::size_t offset) const
{
    for (++offset; offset < m_text.size() && m_text[offset] != '"'; ++offset) {
        if (m_text[offset] == '\\') {
            ++offset;
        }
    }
    return std::min(offset, m_text.size() - 1) + 1;
}

// The bracket at which the reader threw: the one that opens the first array or object at the depth
// limit that is not empty.
std::size_t JsonSource::FindTooDeep(std::size_t limit) const
{
    std::size_t depth = 0;
    for (std::size_t i = SkipBlanks(0); i < m_text.size(); i = SkipBlanks(i + 1)) {
        const char c = m_text[i];
        if (c == '"') {
            i = SkipString(i) - 1;
        } else if (c == '[' || c == '{') {
            const std::size_t next = SkipBlanks(i + 1);
            const char close = c == '[' ? ']' : '}';
            if (++depth == limit && m_text.compare(next, 1, std::string(1, close)) != 0) {
                return i;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return 0;
}
