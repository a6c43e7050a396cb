// A folder of its own for one test, removed with all that is in it.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

class TempFolder
{
public:
    TempFolder()
    {
        std::string name = std::filesystem::temp_directory_path() / "kestrane-test-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make " + name);
        }
        m_path = std::filesystem::canonical(name);
    }
    ~TempFolder()
    {
        std::error_code ignored;  // Another process may still be writing there.
        std::filesystem::remove_all(m_path, ignored);
    }

    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string path() const { return m_path; }

    // The absolute path of `name` in the folder.
    std::string operator/(const std::string& name) const { return m_path / name; }

    // Writes a file, with the folders that lead to it, and returns its absolute path.
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
