#include "tools/launchlist/log/log_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

#include "tools/launchlist/base/files.h"

namespace launchlist {

namespace {

// More than any log keeps.
constexpr int kMostOldFiles = 99;

struct OpenFile
{
    LogFile file;
    int descriptor = -1;
};

using FileId = std::pair<dev_t, ino_t>;

class OpenLogs
{
public:
    OpenLogs() = default;
    OpenLogs(const OpenLogs&) = delete;
    OpenLogs& operator=(const OpenLogs&) = delete;

    ~OpenLogs()
    {
        for (const OpenFile& open_file : m_files) {
            if (open_file.descriptor >= 0) {
                close(open_file.descriptor);
            }
        }
    }

    // All are opened before one is read, the newest first: a rotation in between may show a file
    // under two names, which its number tells, but hides none.
    void Open(const std::string& path)
    {
        const std::size_t first = m_files.size();
        OpenOne(path, true);
        for (int number = 1; number <= kMostOldFiles; ++number) {
            OpenOne(path + "." + std::to_string(number), false);
        }
        std::reverse(m_files.begin() + static_cast<std::ptrdiff_t>(first), m_files.end());
    }

    std::vector<OpenFile>& Files() { return m_files; }

private:
    void OpenOne(const std::string& path, bool is_wanted)
    {
        OpenFile open_file;
        open_file.file.path = path;
        open_file.descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status = {};
        if (open_file.descriptor < 0 || fstat(open_file.descriptor, &status) != 0) {
            if (!is_wanted && errno == ENOENT) {
                return;
            }
            open_file.file.error = std::strerror(errno);
        } else if (!m_seen.insert(FileId(status.st_dev, status.st_ino)).second) {
            close(open_file.descriptor);
            return;
        }
        m_files.push_back(open_file);
    }

    std::vector<OpenFile> m_files;
    std::set<FileId> m_seen;
};

}  // namespace

std::vector<LogFile> ReadLogs(const std::vector<std::string>& paths,
                              const std::function<void(const qv7log::Record&)>& on_record,
                              const std::function<void(const Unread&)>& on_unread)
{
    OpenLogs logs;
    for (const std::string& path : paths) {
        logs.Open(path);
    }
    std::vector<LogFile> files;
    std::string bytes;
    qv7log::Entry entry;
    for (OpenFile& open_file : logs.Files()) {
        LogFile& file = open_file.file;
        if (open_file.descriptor >= 0 && ReadDescriptor(open_file.descriptor, bytes, file.error)) {
            file.size = bytes.size();
            std::string_view rest = bytes;
            std::size_t line = 1;
            while (qv7log::NextEntry(rest, entry)) {
                if (entry.is_record) {
                    on_record(entry.record);
                } else {
                    on_unread({file.path, line, entry.raw});
                }
                line += rest.empty() || rest.data()[-1] == '\n' ? 1U : 0U;
            }
        }
        files.push_back(std::move(file));
    }
    return files;
}

}  // namespace launchlist
