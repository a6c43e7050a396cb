#include "tools/launchlist/status/launcher_log.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <vector>

#include "qv7log/record_format.h"
#include "qv7log/record_reader.h"

namespace launchlist {

namespace {

constexpr Milliseconds kHour = 3600000;

// A process that is not known yet may have written records since this time: it was forked after the
// processes were listed, and before the log was read. They are kept until the next update.
constexpr Milliseconds kRecent = 10000;

// The unit of a file's time of change on some file systems.
constexpr Milliseconds kSecond = 1000;

// More old files than any log keeps.
constexpr int kMaxOldFiles = 99;

// A line that is longer than any record, whose text is at most 64 KiB before it is escaped, is not
// kept: something else wrote it.
constexpr std::size_t kMaxLine = 1U << 20U;

// A pipe in place of the log must not block.
constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

constexpr std::string_view kWriter = "launcher[";

// The process id in a line that looks like a record of a launcher; 0 if it does not. This is much
// faster than parsing the record, and most records are those of earlier launchers.
pid_t WriterOf(std::string_view line)
{
    // The level is a word of any length.
    constexpr std::size_t kHead = qv7log::kTimestampSize + 32;
    const std::size_t at = line.substr(0, kHead).find(kWriter);
    if (at == std::string_view::npos) {
        return 0;
    }
    pid_t process = 0;
    const char* const begin = line.data() + at + kWriter.size();
    const auto result = std::from_chars(begin, line.data() + line.size(), process);
    return result.ec == std::errc() ? process : 0;
}

bool IsSameFile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The open files of a log, which are closed with this object.
class OpenFiles
{
public:
    OpenFiles() = default;
    OpenFiles(const OpenFiles&) = delete;
    OpenFiles& operator=(const OpenFiles&) = delete;
    ~OpenFiles()
    {
        for (const int descriptor : descriptors) {
            close(descriptor);
        }
    }

    std::vector<int> descriptors;
};

}  // namespace

LauncherLog::~LauncherLog()
{
    KeepOpen(-1);
}

void LauncherLog::KeepOpen(int descriptor)
{
    if (m_file >= 0) {
        close(m_file);
    }
    m_file = descriptor;
}

void LauncherLog::Update(const ProcessTimes& processes, Milliseconds now)
{
    for (auto entry = m_processes.begin(); entry != m_processes.end();) {
        entry = processes.count(entry->first) == 0 ? m_processes.erase(entry) : std::next(entry);
    }
    m_recent = now - kRecent;
    ReadNew(processes, now);
    for (auto& entry : m_processes) {
        for (auto& item : entry.second.items) {
            std::deque<Milliseconds>& ends = item.second.recent_ends;
            while (!ends.empty() && ends.front() < now - kHour) {
                ends.pop_front();
            }
        }
    }
}

const ProcessRecords* LauncherLog::Find(pid_t process) const
{
    const auto found = m_processes.find(process);
    return found == m_processes.end() ? nullptr : &found->second;
}

bool LauncherLog::MayLackRecordsSince(Milliseconds time) const
{
    return (m_has_old_files && m_first && *m_first > time) || (m_last_gap && *m_last_gap >= time);
}

// Opens the log and its old files, the newest first, before any is read. If the log is rotated
// meanwhile, a file may be found under two names, but none is missed. Stops at the file that was
// read last, since all others are older.
void LauncherLog::ReadNew(const ProcessTimes& processes, Milliseconds now)
{
    struct stat known = {};
    const bool has_known = m_file >= 0 && fstat(m_file, &known) == 0;
    Milliseconds first_start = m_recent;
    for (const auto& process : processes) {
        first_start = std::min(first_start, process.second);
    }
    OpenFiles files;
    std::vector<struct stat> seen;
    bool is_known_found = false;
    m_error.clear();
    for (int number = 0; number <= kMaxOldFiles && !is_known_found; ++number) {
        const std::string path = number == 0 ? m_path : m_path + "." + std::to_string(number);
        const int descriptor = open(path.c_str(), kFlags);
        struct stat status = {};
        if (descriptor < 0 || fstat(descriptor, &status) != 0) {
            if (number == 0) {
                m_error = std::strerror(errno);
            } else if (errno != ENOENT && errno != ENOTDIR) {
                NoteUnreadable(path, now);
            }
            if (descriptor >= 0) {
                close(descriptor);
            }
            continue;
        }
        is_known_found = has_known && IsSameFile(status, known);
        const auto is_same = [&](const struct stat& other) { return IsSameFile(status, other); };
        const bool is_regular = S_ISREG(status.st_mode);
        if (number > 0 && !is_regular) {
            NoteUnreadable(path, now);
        }
        if (is_known_found || std::any_of(seen.begin(), seen.end(), is_same) || !is_regular) {
            close(descriptor);
            continue;
        }
        seen.push_back(status);
        m_has_old_files = m_has_old_files || number > 0;
        const Milliseconds changed = static_cast<Milliseconds>(status.st_mtime) * 1000;
        if (number > 0 && changed + kSecond < first_start) {
            // All of its records are older than every process, and so are those of older files.
            m_first = changed;
            close(descriptor);
            break;
        }
        files.descriptors.push_back(descriptor);
    }
    if (has_known) {
        m_offset = known.st_size < m_offset ? 0 : m_offset;  // It was truncated.
        ReadFile(m_file, processes);
    }
    for (auto file = files.descriptors.rbegin(); file != files.descriptors.rend(); ++file) {
        m_offset = 0;
        m_rest.clear();
        ReadFile(*file, processes);
    }
    if (!files.descriptors.empty()) {
        KeepOpen(fcntl(files.descriptors.front(), F_DUPFD_CLOEXEC, 0));
    }
}

void LauncherLog::NoteGap(Milliseconds time)
{
    m_last_gap = std::max(m_last_gap.value_or(time), time);
}

// The records of this old file are missing, up to the time of its last change.
void LauncherLog::NoteUnreadable(const std::string& path, Milliseconds now)
{
    struct stat status = {};
    const Milliseconds changed = stat(path.c_str(), &status) == 0
                                     ? static_cast<Milliseconds>(status.st_mtime) * 1000 + kSecond
                                     : now;
    NoteGap(changed);
}

void LauncherLog::ReadFile(int descriptor, const ProcessTimes& processes)
{
    constexpr std::size_t kChunk = 1U << 18U;
    struct stat status = {};
    if (fstat(descriptor, &status) == 0 && status.st_size <= m_offset) {
        return;
    }
    std::vector<char> chunk(kChunk);
    for (;;) {
        const ssize_t count = pread(descriptor, chunk.data(), chunk.size(), m_offset);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            if (count < 0) {
                m_error = std::strerror(errno);
            }
            return;
        }
        m_offset += count;
        std::string_view bytes(chunk.data(), static_cast<std::size_t>(count));
        for (std::size_t end = bytes.find('\n'); end != std::string_view::npos;
             end = bytes.find('\n')) {
            if (m_rest.empty()) {
                AddLine(bytes.substr(0, end), processes);
            } else {
                AddLine(m_rest.append(bytes.substr(0, end)), processes);
                m_rest.clear();
            }
            bytes.remove_prefix(end + 1);
        }
        if (m_rest.size() < kMaxLine) {
            m_rest.append(bytes);
        }
    }
}

void LauncherLog::AddLine(std::string_view line, const ProcessTimes& processes)
{
    const std::optional<Milliseconds> time = ParseTimeStamp(line.substr(0, qv7log::kTimestampSize));
    if (!time) {
        NoteGap(m_last);
        return;
    }
    m_first = std::min(m_first.value_or(*time), *time);
    m_last = std::max(m_last, *time);
    const pid_t writer = WriterOf(line);
    const auto process = processes.find(writer);
    const Milliseconds since = process == processes.end() ? m_recent : process->second;
    qv7log::Record record;
    if (writer == 0 || *time < since) {
        return;
    }
    if (!qv7log::ParseRecord(line, record) || record.process != writer) {
        NoteGap(*time);
    } else if (record.name == "launcher" && record.cut == 0) {
        AddEvent(ReadEvent(record.level, record.text), writer, *time);
    }
}

void LauncherLog::AddEvent(const Event& event, pid_t process, Milliseconds time)
{
    if (event.kind == EventKind::kRecordsLost) {
        NoteGap(time);
        return;
    }
    if (event.kind == EventKind::kOther) {
        return;
    }
    ProcessRecords& records = m_processes[process];
    if (event.kind == EventKind::kNoName || event.kind == EventKind::kListRejected) {
        return;
    }
    records.last_item = event.name;
    ItemRecords& item = records.items[records.last_item];
    item.is_fork_failure_last = event.kind == EventKind::kForkFailed;
    switch (event.kind) {
        case EventKind::kStart:
            records.has_starts = true;
            item.last_start = time;
            break;
        case EventKind::kEnd:
            ++item.ends;
            item.recent_ends.push_back(time);
            item.last_end = time;
            item.how = {event.result >= 0, event.wait_status};
            break;
        case EventKind::kForkFailed:
            item.failed_fork = time;
            break;
        default:
            break;
    }
}

}  // namespace launchlist
