#include "config/ini_profile.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <regex>
#include <vector>

#include "util/string_util.h"

namespace {

constexpr std::size_t kLineSize = 2048;

enum class Lookup
{
    kNoFile,
    kNotFound,
    kFound
};

std::string Lower(std::string text)
{
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// Reads the next line of `file` and trims it. Returns false once an earlier call has reached the
// end of the file.
//
// A read error gives an empty line, and the search continues. A directory can be opened but not
// read, so its search never ends. The product depends on this: if a read error ended the search,
// components would continue with a default although the file exists.
bool ReadLine(std::FILE* file, std::string& line)
{
    if (std::feof(file)) {
        return false;
    }
    char text[kLineSize] = {};
    line = std::fgets(text, sizeof text, file) != nullptr ? text : "";
    trim(line);
    return true;
}

bool IsHeaderOf(const std::string& line, const std::string& section)
{
    if (line.size() < 3 || line.front() != '[' || line.back() != ']') {
        return false;
    }
    std::string name = line.substr(1, line.size() - 2);
    return Lower(trim(name)) == section;
}

// Reads lines up to the header of `section`; false when there is none.
bool SkipToSection(std::FILE* file, const std::string& section)
{
    std::string line;
    while (ReadLine(file, line)) {
        if (IsHeaderOf(line, section)) {
            return true;
        }
    }
    return false;
}

// Searches the lines of one section for the first that gives `key` a value.
bool FindKey(std::FILE* file, const std::string& key, std::string& value)
{
    const std::regex equals("=");
    std::string line;
    while (ReadLine(file, line)) {
        if (line.empty()) {
            continue;
        }
        if (line.front() == '[') {
            return false;
        }
        const std::vector<std::string> pieces = split(line, equals);
        if (pieces.size() >= 2 && Lower(pieces[0]) == key) {
            value = pieces[1];
            return true;
        }
    }
    return false;
}

// The search that both functions share. Sets `value` only for kFound.
Lookup FindValue(std::string section, const std::string& key, const std::string& file,
                 std::string& value)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "r"),
                                                                 std::fclose);
    if (stream == nullptr) {
        return Lookup::kNoFile;
    }
    if (!SkipToSection(stream.get(), Lower(trim(section))) ||
        !FindKey(stream.get(), Lower(key), value)) {
        return Lookup::kNotFound;
    }
    return Lookup::kFound;
}

// Copies `text` into `buffer` and returns its length if it fits; otherwise returns 0. A negative
// `size` becomes a huge unsigned one here, so it never limits.
std::uint64_t CopyIfItFits(const std::string& text, char* buffer, std::int32_t size)
{
    if (text.size() >= static_cast<std::uint64_t>(size)) {
        return 0;
    }
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return text.size();
}

}  // namespace

std::uint64_t GetPrivateProfileString(std::string section, std::string key,
                                      std::string default_value, char* buffer, std::int32_t size,
                                      std::string file)
{
    if (buffer == nullptr || size == 0) {
        return 0;
    }
    std::string value;
    if (FindValue(section, key, file, value) == Lookup::kFound) {
        const std::uint64_t length = CopyIfItFits(value, buffer, size);
        if (length != 0) {
            return length;
        }
    }
    return CopyIfItFits(default_value, buffer, size);
}

std::uint32_t GetPrivateProfileInt(std::string section, std::string key,
                                   std::uint32_t default_value, std::string file)
{
    std::string value;
    switch (FindValue(section, key, file, value)) {
        case Lookup::kNoFile:
            return default_value;
        case Lookup::kNotFound:
            return 0;
        case Lookup::kFound:
            break;
    }
    return static_cast<std::uint32_t>(std::atoi(value.c_str()));
}
