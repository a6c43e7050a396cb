#include "tools/launchlist/output/json_writer.h"

#include <utility>

#include "tools/launchlist/base/text.h"
#include "util/string_util.h"

namespace launchlist {

namespace {

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;

}  // namespace

JsonWriter::JsonWriter(std::function<void(std::string_view)> write) : m_write(std::move(write)) {}

void JsonWriter::BeginObject(const char* key)
{
    Begin(key, '{');
}

void JsonWriter::EndObject()
{
    End('}');
}

void JsonWriter::BeginArray(const char* key)
{
    Begin(key, '[');
}

void JsonWriter::EndArray()
{
    End(']');
}

void JsonWriter::Text(const char* key, const std::string& value)
{
    Put(key, json_string(value));
}

void JsonWriter::Number(const char* key, long long value)
{
    Put(key, std::to_string(value));
}

void JsonWriter::Number(const char* key, double value)
{
    Put(key, string_format("%.2f", value));
}

void JsonWriter::Bool(const char* key, bool value)
{
    Put(key, value ? "true" : "false");
}

void JsonWriter::Null(const char* key)
{
    Put(key, "null");
}

void JsonWriter::Finish()
{
    m_write(m_buffer + "\n");
    m_buffer.clear();
}

void JsonWriter::Begin(const char* key, char bracket)
{
    Put(key, std::string(1, bracket));
    ++m_depth;
    m_is_first = true;
}

void JsonWriter::End(char bracket)
{
    --m_depth;
    if (!m_is_first) {
        m_buffer += "\n" + std::string(static_cast<std::size_t>(2 * m_depth), ' ');
    }
    m_buffer += bracket;
    m_is_first = false;
}

void JsonWriter::Put(const char* key, const std::string& value)
{
    m_buffer += m_is_first ? "" : ",";
    m_buffer += m_depth == 0 ? "" : "\n" + std::string(static_cast<std::size_t>(2 * m_depth), ' ');
    if (key != nullptr) {
        m_buffer += "\"" + std::string(key) + "\": ";
    }
    m_buffer += value;
    m_is_first = false;
    if (m_buffer.size() >= kBufferSize) {
        m_write(m_buffer);
        m_buffer.clear();
    }
}

}  // namespace launchlist
