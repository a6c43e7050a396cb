#include <json/writer.h>

#include "json/json_object.h"
#include "util/string_util.h"
#include "util/util.h"

// Some versions of jsoncpp mark FastWriter and StyledWriter as deprecated. The product's documents
// are written in their layout, and their successor's layout differs.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

// `text` as a JSON string. jsoncpp writes the characters that JSON requires to be escaped; every
// other byte is copied.
std::string Quoted(const std::string& text)
{
    Json::FastWriter writer;
    std::string quoted = "\"";
    for (const char c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\') {
            const std::string escaped = writer.write(Json::Value(&c, &c + 1));
            quoted.append(escaped, 1, escaped.size() - 3);  // Without quotes and line feed.
        } else {
            quoted += c;
        }
    }
    return quoted + '"';
}

// Writes a document in the layout of one of jsoncpp's writers, with strings as the stored bytes.
//
// The writers must not see the strings: several versions of jsoncpp replace every character beyond
// ASCII by an escape and every ill-formed byte by U+FFFD. That cannot be undone in the written
// text, because a comment may contain the same escape literally. So the writer gets a copy of the
// document, the template, in which placeholders stand for all strings and member names. No
// placeholder contains a quote, so each pair of quotes outside comments encloses one, and FillIn
// replaces the pair and what it encloses.
class Template
{
public:
    // `with_comments`: whether the writer passed to FillIn writes comments.
    Template(const Json::Value& document, bool with_comments) : m_with_comments(with_comments)
    {
        AddValue(document, nullptr, m_template);
    }

    std::string FillIn(Json::Writer& writer) const;

private:
    // Makes `result` the template of `value`. `name` is the member name, null if `value` is not a
    // member.
    void AddValue(const Json::Value& value, const std::string* name, Json::Value& result);
    Json::Value TemplateWithoutComments(const Json::Value& value);
    void AddComment(const Json::Value& value, Json::CommentPlacement placement,
                    Json::Value& result);

    bool m_with_comments;
    Json::Value m_template;
    // The replacements for the pairs of quotes in the written template, in the order of writing.
    std::vector<std::string> m_replacements;
};

std::string Template::FillIn(Json::Writer& writer) const
{
    const std::string written = writer.write(m_template);
    std::string filled;
    std::string::size_type pos = 0;
    for (const std::string& text : m_replacements) {
        const auto open = written.find('"', pos);
        filled.append(written, pos, open - pos).append(text);
        pos = written.find('"', open + 1) + 1;
    }
    filled.append(written, pos);
    return trim(filled);
}

void Template::AddValue(const Json::Value& value, const std::string* name, Json::Value& result)
{
    AddComment(value, Json::commentBefore, result);
    if (name != nullptr) {
        m_replacements.push_back(Quoted(*name));
    }
    Json::Value payload = TemplateWithoutComments(value);
    result.swapPayload(payload);
    AddComment(value, Json::commentAfterOnSameLine, result);
    AddComment(value, Json::commentAfter, result);
}

Json::Value Template::TemplateWithoutComments(const Json::Value& value)
{
    Json::Value result(value.type());
    switch (value.type()) {
        case Json::stringValue:
            m_replacements.push_back(Quoted(value.asString()));
            // As wide as the text: the width decides whether an array fits on one line.
            return std::string(m_replacements.back().size() - 2, 'x');
        case Json::arrayValue:
            for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
                AddValue(value[i], nullptr, result[i]);
            }
            return result;
        case Json::objectValue: {
            // The writer sorts members by the bytes of their names. Placeholders that are numbers
            // with the same number of digits keep that order.
            unsigned long long number = 10'000'000'000;
            for (const std::string& name : value.getMemberNames()) {
                AddValue(value[name], &name, result[std::to_string(number++)]);
            }
            return result;
        }
        default:
            return value;
    }
}

void Template::AddComment(const Json::Value& value, Json::CommentPlacement placement,
                          Json::Value& result)
{
    if (!m_with_comments || !value.hasComment(placement)) {
        return;
    }
    // A quote in a comment becomes a pair of quotes, whose replacement is one quote.
    std::string comment;
    for (const char c : value.getComment(placement)) {
        comment += c;
        if (c == '"') {
            comment += c;
            m_replacements.push_back("\"");
        }
    }
    // setComment removes one trailing line feed.
    result.setComment(comment + '\n', placement);
}

}  // namespace

std::string JsonObject::ToText()
{
    Json::FastWriter writer;
    return Template(*m_ref, false).FillIn(writer);
}

std::string JsonObject::ToStyledText()
{
    Json::StyledWriter writer;
    return Template(*m_ref, true).FillIn(writer);
}

#pragma GCC diagnostic pop

bool JsonObject::Insert(const char* key, const JsonObject& item)
{
    // Copied first, because `item` may be a view into this document, which the new member changes.
    Json::Value copy = *item.m_ref;
    (*m_ref)[key] = copy;
    return true;
}

bool JsonObject::Insert(const char* key, const std::wstring& text)
{
    const std::string bytes = ws2s(text);
    (*m_ref)[key] = bytes;
    return true;
}

bool JsonObject::InsertArrayItem(std::string text)
{
    m_ref->append(text);
    return true;
}

bool JsonObject::InsertArrayItem(JsonObject& item)
{
    m_ref->append(*item.m_ref);
    return true;
}

bool JsonObject::RemoveArrayItem(unsigned long index)
{
    Json::Value removed;
    return m_ref->removeIndex(static_cast<Json::ArrayIndex>(index), &removed);
}

bool JsonObject::Remove(const char* key)
{
    Json::Value removed;
    return m_ref->removeMember(key, &removed);
}

std::vector<std::string> JsonObject::GetKeys()
{
    return m_ref->getMemberNames();
}

JsonObject JsonObject::Copy()
{
    return JsonObject(*m_ref);
}

JsonObject::operator std::wstring()
{
    const std::string text = *this;
    return s2ws(text);
}
