// Writing JSON piece by piece, for output too large to be built in memory first.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace launchlist {

// Writes indented JSON that is safe to print, as safe_json makes it. The calls must nest properly:
// members need a key, elements of an array must not have one.
class JsonWriter
{
public:
    explicit JsonWriter(std::function<void(std::string_view)> write);

    void BeginObject(const char* key = nullptr);
    void EndObject();
    void BeginArray(const char* key = nullptr);
    void EndArray();

    void Text(const char* key, const std::string& value);
    void Number(const char* key, long long value);
    void Number(const char* key, double value);
    void Bool(const char* key, bool value);
    void Null(const char* key);

    template <typename Value>
    void Count(const char* key, Value value)
    {
        Number(key, static_cast<long long>(value));
    }
    // A number, or null.
    template <typename Value>
    void Count(const char* key, const std::optional<Value>& value)
    {
        value ? Count(key, *value) : Null(key);
    }

    // Writes the final line feed. Nothing may follow.
    void Finish();

private:
    void Begin(const char* key, char bracket);
    void End(char bracket);
    void Put(const char* key, const std::string& value);

    std::function<void(std::string_view)> m_write;
    std::string m_buffer;
    int m_depth = 0;
    bool m_is_first = true;
};

}  // namespace launchlist
