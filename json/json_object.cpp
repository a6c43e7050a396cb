#include "json/json_object.h"

#include <json/reader.h>

#include <regex>

#include "util/string_util.h"

// Some versions of jsoncpp mark Json::Reader as deprecated. The product's documents were written
// against what it accepts, and its successor accepts a different set of texts.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

JsonObject::JsonObject(const char* text, unsigned int length) : m_ref(&m_value)
{
    Json::Reader reader;
    if (!reader.parse(text, text + length, m_value, false)) {
        throw AERROR_PARSE_FAILED;
    }
}

JsonObject::JsonObject(const char* text) : m_ref(&m_value)
{
    if (text == nullptr) {
        return;
    }
    Json::Reader reader;
    if (!reader.parse(std::string(text), m_value, true)) {
        throw AERROR_PARSE_FAILED;
    }
}

#pragma GCC diagnostic pop

JsonObject::JsonObject(Json::Value& value) : m_ref(&value) {}

JsonObject::JsonObject(const JsonObject& other) : m_ref(other.m_ref)
{
    if (!other.m_value.isNull()) {
        m_value = other.m_value;
        m_ref = &m_value;
    }
}

JsonObject JsonObject::GetEmptyObject()
{
    return JsonObject("{}");
}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): Json::Value copies before it releases.
JsonObject& JsonObject::operator=(const JsonObject& other)
{
    if (other.m_value.isNull()) {
        *m_ref = *other.m_ref;
    } else {
        m_value = other.m_value;
        m_ref = &m_value;
    }
    return *this;
}

JsonObject& JsonObject::operator=(std::string text)
{
    *m_ref = text;
    return *this;
}

Json::Value* JsonObject::Find(const char* path)
{
    Json::Value* value = m_ref;
    for (const std::string& name : split(path, std::regex("/"))) {
        if (name.empty()) {
            continue;
        }
        if (!value->isMember(name)) {
            return nullptr;
        }
        value = &(*value)[name];
    }
    return value;
}

JsonObject JsonObject::GetObject(const char* path)
{
    Json::Value* value = Find(path);
    if (value == nullptr) {
        throw AERROR_NOT_FOUND;
    }
    return JsonObject(*value);
}

bool JsonObject::HasObject(const char* path)
{
    return Find(path) != nullptr;
}

JsonObject JsonObject::operator[](const char* key)
{
    return JsonObject((*m_ref)[key]);
}

JsonObject JsonObject::operator[](int index)
{
    return JsonObject((*m_ref)[index]);
}

unsigned int JsonObject::GetArraySize()
{
    return m_ref->size();
}

bool JsonObject::IsValid()
{
    return !m_ref->isNull();
}

bool JsonObject::IsArray()
{
    return m_ref->isArray();
}

JsonObject::operator std::string()
{
    const std::string text = m_ref->asString();
    return text.substr(0, text.find('\0'));
}

JsonObject::operator unsigned long long()
{
    return m_ref->asUInt64();
}

JsonObject::operator long long()
{
    return m_ref->asInt64();
}

JsonObject::operator long()
{
    return m_ref->asInt64();
}

JsonObject::operator int()
{
    return static_cast<int>(m_ref->asInt64());
}

JsonObject::operator AERROR()
{
    return static_cast<AERROR>(m_ref->asInt64());
}

JsonObject::operator double()
{
    return m_ref->asDouble();
}

JsonObject::operator bool()
{
    return m_ref->asBool();
}
