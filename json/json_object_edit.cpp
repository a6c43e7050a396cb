#include <json/writer.h>

#include "json/json_object.h"
#include "util/string_util.h"
#include "util/util.h"

// Some versions of jsoncpp mark FastWriter and StyledWriter as deprecated. Their layout is the one
// that our documents are written in, and their successor's differs.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

// `text` as a JSON string. jsoncpp escapes the characters that JSON wants escaped; every other byte
// stays what it is.
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

// A document as a form: every string and member name is blanked, and filled in again after one of
// jsoncpp's writers has laid the form out; there, quotes stand around blanks and nowhere else. So
// the layout is the library's own. The writers must not see the texts themselves: several versions
// turn every character beyond ASCII into an escape and every ill-formed byte into U+FFFD, which
// cannot be undone in the finished text, where a comment may hold the same escape literally.
class Form
{
public:
    // `with_comments`: whether the writer that is going to be used writes comments.
    Form(const Json::Value& document, bool with_comments) : m_with_comments(with_comments)
    {
        Blank(document, nullptr, m_form);
    }

    std::string FillIn(Json::Writer& writer) const;

private:
    // Makes `form` the form of `value`. `name` is the name of a member, null for anything else.
    void Blank(const Json::Value& value, const std::string* name, Json::Value& form);
    Json::Value BlankPayload(const Json::Value& value);
    void BlankComment(const Json::Value& value, Json::CommentPlacement placement,
                      Json::Value& form);

    bool m_with_comments;
    Json::Value m_form;
    // What the pairs of quotes in the written form stand for, in the order of writing.
    std::vector<std::string> m_texts;
};

std::string Form::FillIn(Json::Writer& writer) const
{
    const std::string written = writer.write(m_form);
    std::string filled;
    std::string::size_type pos = 0;
    for (const std::string& text : m_texts) {
        const auto open = written.find('"', pos);
        filled.append(written, pos, open - pos).append(text);
        pos = written.find('"', open + 1) + 1;
    }
    filled.append(written, pos);
    return trim(filled);
}

void Form::Blank(const Json::Value& value, const std::string* name, Json::Value& form)
{
    BlankComment(value, Json::commentBefore, form);
    if (name != nullptr) {
        m_texts.push_back(Quoted(*name));
    }
    Json::Value payload = BlankPayload(value);
    form.swapPayload(payload);
    BlankComment(value, Json::commentAfterOnSameLine, form);
    BlankComment(value, Json::commentAfter, form);
}

Json::Value Form::BlankPayload(const Json::Value& value)
{
    Json::Value form(value.type());
    switch (value.type()) {
        case Json::stringValue:
            m_texts.push_back(Quoted(value.asString()));
            // As wide as the text: it decides whether an array fits into one line.
            return std::string(m_texts.back().size() - 2, 'x');
        case Json::arrayValue:
            for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
                Blank(value[i], nullptr, form[i]);
            }
            return form;
        case Json::objectValue: {
            // Members are written in the order of their names' bytes. Numbers of one width keep it.
            unsigned long long number = 10'000'000'000;
            for (const std::string& name : value.getMemberNames()) {
                Blank(value[name], &name, form[std::to_string(number++)]);
            }
            return form;
        }
        default:
            return value;
    }
}

void Form::BlankComment(const Json::Value& value, Json::CommentPlacement placement,
                        Json::Value& form)
{
    if (!m_with_comments || !value.hasComment(placement)) {
        return;
    }
    // A quote in a comment becomes a pair that stands for one quote.
    std::string comment;
    for (const char c : value.getComment(placement)) {
        comment += c;
        if (c == '"') {
            comment += c;
            m_texts.push_back("\"");
        }
    }
    // The library drops one line feed at the end.
    form.setComment(comment + '\n', placement);
}

}  // namespace

std::string JsonObject::ToText()
{
    Json::FastWriter writer;
    return Form(*m_ref, false).FillIn(writer);
}

std::string JsonObject::ToStyledText()
{
    Json::StyledWriter writer;
    return Form(*m_ref, true).FillIn(writer);
}

#pragma GCC diagnostic pop

bool JsonObject::Insert(const char* key, const JsonObject& item)
{
    // Copied first: `item` may look into this document, and the new member changes it.
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
