// A directory for one test, which is removed with its contents.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

class TempDirectory
{
public:
    TempDirectory()
    {
        std::string name = std::filesystem::temp_directory_path() / "kestrane-test-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot create " + name);
        }
        m_path = std::filesystem::canonical(name);
    }
    ~TempDirectory()
    {
        std::error_code ignored;  // Another process may still be writing there.
        std::filesystem::remove_all(m_path, ignored);
    }

    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    std::string path() const { return m_path; }

    // The absolute path of `name` in the directory.
    std::string operator/(const std::string& name) const { return m_path / name; }

    // Writes a file, creating the directories above it, and returns its absolute path.
    std::string Write(const std::string& name, const std::string& content) const
    {
        const std::filesystem::path file = m_path / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }

private:
    std::filesystem::path m_path;
};
