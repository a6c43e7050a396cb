#include "tools/launchlist/log/log_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "tools/launchlist/base/files.h"
#include "tools/launchlist/log/log_bytes.h"

namespace launchlist {

namespace {

constexpr int kFlags = O_RDONLY | O_CLOEXEC;

struct OpenFile
{
    LogFile file;
    int descriptor = -1;
};

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

    // Opens a log and its old files, the newest first, before any is read. If the log is rotated
    // meanwhile, a file may be found under two names, which its inode shows, but none is missed.
    void Open(const std::string& path)
    {
        const std::size_t first = m_files.size();
        OpenOne(path, true);
        for (int number = 1; path != "-" && number <= kMaxOldFiles; ++number) {
            OpenOne(path + "." + std::to_string(number), false);
        }
        std::reverse(m_files.begin() + static_cast<std::ptrdiff_t>(first), m_files.end());
    }

    std::vector<OpenFile>& Files() { return m_files; }

private:
    // A file that is not required may be missing.
    void OpenOne(const std::string& path, bool is_required)
    {
        OpenFile open_file;
        open_file.file.path = path;
        open_file.descriptor =
            path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(path.c_str(), kFlags);
        struct stat status = {};
        if (open_file.descriptor < 0 || fstat(open_file.descriptor, &status) != 0) {
            if (!is_required && errno == ENOENT) {
                return;
            }
            open_file.file.error = std::strerror(errno);
            if (stat(path.c_str(), &status) == 0) {
                open_file.file.has_id = true;
                open_file.file.id = FileId(status.st_dev, status.st_ino);
            }
        } else {
            open_file.file.has_id = true;
            open_file.file.id = FileId(status.st_dev, status.st_ino);
            if (!m_seen.insert(open_file.file.id).second) {
                close(open_file.descriptor);
                return;
            }
        }
        m_files.push_back(open_file);
    }

    std::vector<OpenFile> m_files;
    std::set<FileId> m_seen;
};

}  // namespace

void PassEntries(const std::string& path, bool is_whole, std::string_view& bytes, std::size_t& line,
                 const LogSink& sink)
{
    qv7log::Entry entry;
    std::string_view rest = bytes;
    while (qv7log::NextEntry(rest, entry)) {
        const bool has_line_end = rest.data()[-1] == '\n';
        if (rest.empty() && !has_line_end && !is_whole) {
            return;
        }
        bytes = rest;
        if (entry.is_record) {
            sink.on_record(entry.record, entry.raw);
        } else {
            sink.on_unparsed({path, line, entry.raw});
        }
        line += has_line_end || rest.empty() ? 1U : 0U;
    }
}

std::vector<LogFile> ReadLogs(const std::vector<std::string>& paths, const LogSink& sink)
{
    OpenLogs logs;
    for (const std::string& path : paths) {
        logs.Open(path);
    }
    std::vector<LogFile> files;
    std::string bytes;
    for (OpenFile& open_file : logs.Files()) {
        LogFile& file = open_file.file;
        if (open_file.descriptor >= 0 && ReadDescriptor(open_file.descriptor, bytes, file.error)) {
            file.size = bytes.size();
            if (PrepareLog(bytes, file.error)) {
                sink.on_file();
                std::string_view rest = bytes;
                std::size_t line = 1;
                PassEntries(file.path, true, rest, line, sink);
            }
        }
        if (!file.error.empty()) {
            sink.on_unreadable(file.path, file.error);
        }
        files.push_back(std::move(file));
    }
    return files;
}

}  // namespace launchlist
