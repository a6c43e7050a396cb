#include "tools/launchlist/list/registered_formats.h"

#include <dirent.h>

#include <cstdlib>
#include <sstream>

#include "tools/launchlist/base/files.h"

namespace launchlist {

namespace {

// How many bytes of a file the system compares. A shorter file counts as padded with zero bytes.
constexpr std::size_t kComparedSize = 256;

std::string FromHexadecimal(const std::string& digits)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::strtol(digits.substr(i, 2).c_str(), nullptr, 16));
    }
    return bytes;
}

bool IsEnabled(const std::string& text)
{
    return text.compare(0, 7, "enabled") == 0;
}

}  // namespace

RegisteredFormats::RegisteredFormats(const std::string& directory)
{
    std::string status;
    std::string error;
    m_is_known = directory.empty() || ReadFile(directory + "/status", status, error);
    DIR* entries = IsEnabled(status) ? opendir(directory.c_str()) : nullptr;
    if (entries == nullptr) {
        return;
    }
    while (const dirent* entry = readdir(entries)) {
        const std::string name = entry->d_name;
        if (name != "." && name != ".." && name != "status" && name != "register") {
            Read(directory + "/" + name);
        }
    }
    closedir(entries);
}

std::string RegisteredFormats::InterpreterOf(const std::string& path, const std::string& head) const
{
    for (const Format& format : m_formats) {
        if (Matches(format, path, head)) {
            return format.interpreter;
        }
    }
    return "";
}

// Lines such as "interpreter /usr/bin/wine", "extension .exe", "offset 0", "magic 4d5a" and
// "mask ffff", after the line "enabled" or "disabled".
void RegisteredFormats::Read(const std::string& path)
{
    std::string text;
    std::string error;
    if (!ReadFile(path, text, error) || !IsEnabled(text)) {
        return;
    }
    Format format;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t blank = line.find(' ');
        const std::string key = line.substr(0, blank);
        const std::string value = blank == std::string::npos ? "" : line.substr(blank + 1);
        if (key == "interpreter") {
            format.interpreter = value;
        } else if (key == "extension") {
            format.ending = value;
        } else if (key == "offset") {
            format.offset = static_cast<std::size_t>(std::atoi(value.c_str()));
        } else if (key == "magic") {
            format.magic = FromHexadecimal(value);
        } else if (key == "mask") {
            format.mask = FromHexadecimal(value);
        }
    }
    while (format.mask.size() < format.magic.size()) {
        format.mask += '\xff';
    }
    m_formats.push_back(format);
}

bool RegisteredFormats::Matches(const Format& format, const std::string& path,
                                const std::string& head)
{
    if (!format.ending.empty()) {
        const std::size_t dot = path.rfind('.');
        return dot != std::string::npos && path.substr(dot) == format.ending;
    }
    std::string compared = head.substr(0, kComparedSize);
    compared.resize(kComparedSize, '\0');
    if (format.magic.empty() || format.offset + format.magic.size() > compared.size()) {
        return false;
    }
    for (std::size_t i = 0; i < format.magic.size(); ++i) {
        if (((compared[format.offset + i] ^ format.magic[i]) & format.mask[i]) != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace launchlist
