#include "tools/launchlist/log/log_follower.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <utility>

#include "tools/launchlist/log/log_bytes.h"

namespace launchlist {

namespace {

// More files than the log library keeps; writers have left older ones.
constexpr std::size_t kMaxOpen = 16;

// Enough to recognise that a file was truncated and has grown beyond its old size since.
constexpr std::size_t kLastSize = 64;

bool Fail(std::string& error)
{
    error = std::strerror(errno);
    return false;
}

FileId IdOf(const struct stat& status)
{
    return {status.st_dev, status.st_ino};
}

bool IsMissing(int error)
{
    return error == ENOENT || error == ENOTDIR;
}

}  // namespace

Milliseconds NextPause(Milliseconds pause, bool has_grown)
{
    constexpr Milliseconds kShortest = 50;
    constexpr Milliseconds kLongest = 500;
    return has_grown ? kShortest : std::clamp(2 * pause, kShortest, kLongest);
}

LogFollower::LogFollower(std::string path, FollowSink sink)
    : m_path(std::move(path)), m_sink(std::move(sink))
{
}

LogFollower::~LogFollower()
{
    for (const File& file : m_files) {
        close(file.descriptor);
    }
}

bool LogFollower::Poll(std::string& error)
{
    m_has_grown = false;
    for (File& file : m_files) {
        file.has_grown = false;
    }
    if (!OpenNewFiles(error)) {
        return false;
    }
    // While a log is rotated, a thread may still write to the old file, and then to the new one.
    // Reading the new one first keeps the order: the old one then contains all that precedes what
    // was read.
    for (auto file = m_files.rbegin(); file != m_files.rend(); ++file) {
        if (!ReadNew(*file, error)) {
            return false;
        }
    }
    for (File& file : m_files) {
        ReportUnreadable(file.unreadable);
        if (file.is_replacement) {
            file.is_replacement = false;
            m_sink.on_change(LogChange::kReplaced);
        }
        if (file.is_truncated) {
            file.is_truncated = false;
            std::string_view lost = file.rest_before;
            PassEntries(file.path, true, lost, file.line_before, m_sink);
            file.rest_before.clear();
            m_sink.on_change(LogChange::kTruncated);
        }
        PassRest(file, false);
    }
    ReportUnreadable(m_newest_unreadable);
    CloseOldFiles();
    return true;
}

LogFollower::File* LogFollower::FindOpen(const FileId& id)
{
    const auto found = std::find_if(m_files.begin(), m_files.end(),
                                    [&](const File& file) { return file.id == id; });
    return found == m_files.end() ? nullptr : &*found;
}

// Opens the log and its old files, the newest first, up to one that is open already. A rotation
// only moves files to higher numbers, so none is missed if the log is rotated meanwhile.
bool LogFollower::OpenNewFiles(std::string& error)
{
    struct stat status = {};
    int newest = stat(m_path.c_str(), &status);
    if (newest != 0 && IsMissing(errno)) {
        // A process may have been killed after it had renamed the log, or removed it.
        newest = stat((m_path + ".1").c_str(), &status);
    }
    if (newest != 0) {
        return IsMissing(errno) || Fail(error);
    }
    const FileId newest_id = IdOf(status);
    if (newest_id == m_newest || FindOpen(newest_id) != nullptr) {
        return true;
    }
    std::vector<File> found;
    const File* known = nullptr;
    for (int number = 0; number <= kMaxOldFiles && known == nullptr; ++number) {
        File file;
        file.path = number == 0 ? m_path : m_path + "." + std::to_string(number);
        // O_NONBLOCK, so that a pipe without a writer does not block the call.
        file.descriptor = open(file.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (file.descriptor < 0 && IsMissing(errno)) {
            continue;
        }
        bool is_open = file.descriptor >= 0 && fstat(file.descriptor, &status) == 0;
        if (is_open && !S_ISREG(status.st_mode)) {
            errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
            is_open = false;
        }
        if (!is_open) {
            Fail(error);
            if (file.descriptor >= 0) {
                close(file.descriptor);
            }
            if (number == 0) {
                return false;
            }
            auto* const files = found.empty() ? &m_newest_unreadable : &found.back().unreadable;
            files->insert(files->begin(), {file.path, error});
            continue;
        }
        file.id = IdOf(status);
        known = FindOpen(file.id);
        const auto is_same = [&](const File& other) { return other.id == file.id; };
        if (known != nullptr || std::any_of(found.begin(), found.end(), is_same)) {
            close(file.descriptor);
        } else {
            found.push_back(std::move(file));
        }
    }
    if (!m_files.empty() && known != &m_files.back() && !found.empty()) {
        found.back().is_replacement = true;
    }
    m_newest = newest_id;
    m_files.insert(m_files.end(), std::make_move_iterator(found.rbegin()),
                   std::make_move_iterator(found.rend()));
    return true;
}

// Reads everything from `offset` to the end.
bool LogFollower::ReadFrom(File& file, off_t offset, std::string& bytes, std::string& error) const
{
    if (lseek(file.descriptor, offset, SEEK_SET) < 0) {
        return Fail(error);
    }
    std::array<char, std::size_t{64} * 1024> buffer;
    for (;;) {
        const ssize_t count = read(file.descriptor, buffer.data(), buffer.size());
        if (count == 0) {
            return true;
        }
        if (count > 0) {
            bytes.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return Fail(error);
        }
    }
}

bool LogFollower::ReadNew(File& file, std::string& error)
{
    struct stat status = {};
    if (fstat(file.descriptor, &status) != 0) {
        return Fail(error);
    }
    file.is_unlinked = status.st_nlink == 0;
    if (status.st_size == file.offset) {
        return true;
    }
    m_has_grown = true;
    file.has_grown = true;
    const auto overlap = static_cast<off_t>(file.last.size());
    std::string bytes;
    bool is_truncated = status.st_size < file.offset;
    if (!is_truncated) {
        if (!ReadFrom(file, file.offset - overlap, bytes, error)) {
            return false;
        }
        is_truncated = bytes.compare(0, file.last.size(), file.last) != 0;
    }
    if (is_truncated) {
        file.is_truncated = true;
        file.rest_before = std::move(file.rest);
        file.line_before = file.line;
        file.rest.clear();
        file.offset = 0;
        file.line = 1;
        file.last.clear();
        bytes.clear();
        if (!ReadFrom(file, 0, bytes, error)) {
            return false;
        }
    }
    bytes.erase(0, file.last.size());
    file.offset += static_cast<off_t>(bytes.size());
    file.last += bytes.substr(bytes.size() - std::min(bytes.size(), kLastSize));
    file.last.erase(0, file.last.size() - std::min(file.last.size(), kLastSize));
    file.rest += bytes;
    if (file.is_first_read) {
        file.is_first_read = false;
        std::string problem;
        if (!PrepareLog(file.rest, problem)) {
            file.rest.clear();
            if (&file == &m_files.back()) {
                error = problem;
                return false;
            }
            file.unreadable.push_back({file.path, problem});
        }
        m_sink.on_file();
    }
    return true;
}

void LogFollower::ReportUnreadable(std::vector<UnreadableFile>& files) const
{
    for (const UnreadableFile& file : files) {
        m_sink.on_unreadable(file.path, file.error);
    }
    files.clear();
}

void LogFollower::PassRest(File& file, bool is_whole)
{
    std::string_view rest = file.rest;
    PassEntries(file.path, is_whole, rest, file.line, m_sink);
    file.rest.erase(0, file.rest.size() - rest.size());
}

// An old file that has stopped growing will not be completed any more.
void LogFollower::CloseOldFiles()
{
    for (std::size_t i = 0; i + 1 < m_files.size();) {
        File& file = m_files[i];
        if (!file.has_grown) {
            PassRest(file, true);
        }
        if (!file.has_grown && (file.is_unlinked || m_files.size() > kMaxOpen)) {
            close(file.descriptor);
            m_files.erase(m_files.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
}

}  // namespace launchlist
