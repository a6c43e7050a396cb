#include "json/json_source.h"

#include <json/reader.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>

// The reader of JsonObject, see there.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

// How deep the reader goes before it throws.
constexpr int kDepthLimit = 1000;

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
        m_fault = JsonFault{FindTooDeep(), "values are nested too deep", true};
        return;
    }
    m_fault = JsonFault{0, "not a JSON text", false};
    const auto errors = reader.getStructuredErrors();
    if (!errors.empty()) {
        m_fault->offset = static_cast<std::size_t>(errors.front().offset_start);
        m_fault->message = errors.front().message;
    }
}

// Every name and value is read by the reader itself, from where it begins: it stops behind the
// first complete value and tells where that is. Only what stands between values is skipped here.
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
        member.value = ReadValue(SkipBlanks(name.end) + 1, nullptr);
        offset = SkipBlanks(SkipComma(member.value.end));
        members.push_back(std::move(member));
    }
    MarkReplaced(members);
    return members;
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
        throw std::logic_error("a value that was read once is not read again");
    }
    if (text != nullptr) {
        *text = value.asString();
    }
    return PlaceOf(value, begin);
}

// From behind a value to behind its comma, or to the "}". After a comment the reader takes whatever
// one token stands there for the comma, so that one is skipped as well.
std::size_t JsonSource::SkipComma(std::size_t offset) const
{
    offset = SkipBlanks(offset);
    if (offset < m_text.size() && m_text[offset] == '"') {
        return ReadValue(offset, nullptr).end;
    }
    return std::min(m_text.find_first_of(",}\"/", offset), m_text.size() - 1) +
           (m_text.compare(offset, 1, ",") == 0 ? 1U : 0U);
}

// The bracket in which the reader gave up: the first one at the limit that is not empty.
std::size_t JsonSource::FindTooDeep() const
{
    int depth = 0;
    for (std::size_t i = SkipBlanks(0); i < m_text.size(); i = SkipBlanks(i + 1)) {
        const char c = m_text[i];
        if (c == '"') {
            i = ReadValue(i, nullptr).end - 1;
        } else if (c == '[' || c == '{') {
            const std::size_t next = SkipBlanks(i + 1);
            const char close = c == '[' ? ']' : '}';
            if (++depth == kDepthLimit && m_text.compare(next, 1, std::string(1, close)) != 0) {
                return i;
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return 0;
}
