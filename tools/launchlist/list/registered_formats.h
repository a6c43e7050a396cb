// The file formats for which Linux has an interpreter registered (binfmt_misc).
//
// The system consults these registrations before it examines a file itself.
#pragma once

#include <string>
#include <vector>

namespace launchlist {

class RegisteredFormats
{
public:
    // Reads the registrations below `directory`; "" means that the system has none. They are
    // unknown if nothing is mounted there, as in most containers: the kernel still consults them.
    explicit RegisteredFormats(const std::string& directory);

    bool IsKnown() const { return m_is_known; }

    // The interpreter for the file at `path`, whose first bytes are `head`; "" if none is known.
    std::string InterpreterOf(const std::string& path, const std::string& head) const;

private:
    struct Format
    {
        std::string interpreter;
        std::string ending;  // Of the file's name, from the last dot on; "" if bytes decide.
        std::string magic;
        std::string mask;  // As long as `magic`.
        std::size_t offset = 0;
    };

    void Read(const std::string& path);
    static bool Matches(const Format& format, const std::string& path, const std::string& head);

    bool m_is_known = false;
    std::vector<Format> m_formats;  // Those that are enabled.
};

}  // namespace launchlist
