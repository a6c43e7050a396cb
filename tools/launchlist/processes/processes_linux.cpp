// Reads /proc.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tools/launchlist/processes/process_stat_linux.h"
#include "tools/launchlist/processes/processes.h"

namespace launchlist {

namespace {

// In the flags of a "stat" file: forked, and has not executed a program since (PF_FORKNOEXEC). The
// kernel has given it this value since its first releases, though only its sources define it.
constexpr std::uint64_t kHasNotExecuted = 0x40;

constexpr char kDeletedMark[] = " (deleted)";

constexpr char kNoProcess[] = "/proc contains no process";

std::string PathOf(pid_t id, const char* file)
{
    return "/proc/" + std::to_string(id) + "/" + file;
}

// Reads a file of /proc, which are small but may have any size.
bool ReadProcFile(const std::string& path, std::string& text)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    text.clear();
    char chunk[4096];
    ssize_t count = 0;
    do {
        count = read(descriptor, chunk, sizeof chunk);
        if (count > 0) {
            text.append(chunk, static_cast<std::size_t>(count));
        }
    } while (count > 0 || (count < 0 && errno == EINTR));
    close(descriptor);
    return count == 0;
}

// The target of a symbolic link; "" if it cannot be read or is longer than any path.
std::string ReadLink(const std::string& path)
{
    char target[PATH_MAX + sizeof kDeletedMark];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 || static_cast<std::size_t>(length) == sizeof target
               ? ""
               : std::string(target, static_cast<std::size_t>(length));
}

std::int64_t Now(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Removes the mark that the kernel appends to the name of a file without a directory entry. Returns
// whether it was there: the mark may also be part of a file's real name.
bool RemoveDeletedMark(const std::string& link, std::string& path)
{
    constexpr std::size_t kSize = sizeof kDeletedMark - 1;
    if (path.size() < kSize || path.compare(path.size() - kSize, kSize, kDeletedMark) != 0) {
        return false;
    }
    struct stat named = {};
    struct stat open_file = {};
    if (stat(path.c_str(), &named) == 0 && stat(link.c_str(), &open_file) == 0 &&
        named.st_dev == open_file.st_dev && named.st_ino == open_file.st_ino) {
        return false;
    }
    path.resize(path.size() - kSize);
    return true;
}

class LinuxProcesses : public ProcessTable
{
public:
    bool List(std::vector<Process>& processes, std::string& error) override
    {
        processes.clear();
        std::vector<pid_t> ids;
        if (!ListIds(ids, error)) {
            return false;
        }
        m_boot = Now(CLOCK_REALTIME) - Now(CLOCK_BOOTTIME);
        for (const pid_t id : ids) {
            Process process;
            process.id = id;
            if (Read(process)) {
                processes.push_back(process);
            }
        }
        if (processes.empty()) {
            error = kNoProcess;
        }
        return !processes.empty();
    }

    bool ListIds(std::vector<pid_t>& ids, std::string& error) override
    {
        ids.clear();
        DIR* const directory = opendir("/proc");
        if (directory == nullptr) {
            error = "/proc: " + std::string(std::strerror(errno));
            return false;
        }
        while (const dirent* const entry = readdir(directory)) {
            const auto id = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
            if (id > 0) {
                ids.push_back(id);
            }
        }
        closedir(directory);
        if (ids.empty()) {
            error = kNoProcess;
        }
        return !ids.empty();
    }

    bool IsSame(const Process& process) override
    {
        Process now = process;
        return Read(now) && now.birth == process.birth && !now.is_zombie;
    }

    Executable ExecutableOf(const Process& process) override
    {
        Executable executable;
        const std::string link = PathOf(process.id, "exe");
        executable.path = ReadLink(link);
        if (executable.path.empty()) {
            executable.is_denied = errno == EACCES || errno == EPERM;
        }
        executable.is_deleted = RemoveDeletedMark(link, executable.path);
        return executable;
    }

    std::optional<std::string> CommandLineOf(const Process& process) override
    {
        std::string text;
        if (!ReadProcFile(PathOf(process.id, "cmdline"), text)) {
            return std::nullopt;
        }
        if (!text.empty() && text.back() != '\0') {
            text += '\0';
        }
        // The kernel adds an empty argument to an empty vector.
        return text == std::string(1, '\0') ? "" : text;
    }

    std::optional<uid_t> UserOf(const Process& process) override
    {
        std::string text;
        return ReadProcFile(PathOf(process.id, "status"), text) ? ParseUser(text) : std::nullopt;
    }

    std::string DirectoryOf(const Process& process) override
    {
        return ReadLink(PathOf(process.id, "cwd"));
    }

    std::string AppendedInputOf(const Process& process) override
    {
        const std::string link = PathOf(process.id, "fd/0");
        std::string path = ReadLink(link);
        std::string text;
        if (path.empty() || path[0] != '/' || !ReadProcFile(PathOf(process.id, "fdinfo/0"), text)) {
            return "";
        }
        const int flags = ParseOpenFlags(text).value_or(0);
        RemoveDeletedMark(link, path);
        return (flags & O_APPEND) != 0 && (flags & O_ACCMODE) != O_RDONLY ? path : "";
    }

private:
    bool Read(Process& process)
    {
        std::string& text = m_text;
        if (!ReadProcFile(PathOf(process.id, "stat"), text)) {
            return false;
        }
        const std::optional<ProcessStat> stat = ParseProcessStat(text);
        if (!stat) {
            return false;
        }
        const auto to_milliseconds = [this](std::uint64_t ticks) {
            return static_cast<std::int64_t>(ticks * 1000 / m_ticks_per_second);
        };
        process.parent = stat->parent;
        process.birth = stat->start;
        process.start = m_boot + to_milliseconds(stat->start);
        process.cpu = to_milliseconds(stat->cpu);
        process.memory = stat->resident * m_page_size;
        process.is_zombie = stat->state == 'Z' || stat->state == 'X';
        process.has_executed = (stat->flags & kHasNotExecuted) == 0;
        process.image = stat->image;
        return true;
    }

    const std::uint64_t m_ticks_per_second = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
    const std::uint64_t m_page_size = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    std::int64_t m_boot = 0;
    std::string m_text;
};

}  // namespace

std::unique_ptr<ProcessTable> SystemProcesses()
{
    return std::make_unique<LinuxProcesses>();
}

}  // namespace launchlist
