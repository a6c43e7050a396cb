// Asks libproc, and sysctl for the arguments.
#include <errno.h>
#include <fcntl.h>
#include <libproc.h>
#include <mach/mach_time.h>
#include <sys/fcntl.h>
#include <sys/proc_info.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "tools/launchlist/processes/processes.h"

namespace launchlist {

namespace {

// The bit of fi_openflags for a descriptor that can be written to; the kernel's own FWRITE, which
// <fcntl.h> does not show to programs of a strict standard.
constexpr std::uint32_t kOpenForWriting = 2;

// A path in a structure of the kernel, which may fill the whole array.
template <std::size_t Size>
std::string TextOf(const char (&text)[Size])
{
    return std::string(text, strnlen(text, Size));
}

// What KERN_PROCARGS2 returns: the count of arguments, the path that was executed, padding, and the
// arguments, each with a NUL at its end, before the environment.
bool ReadArguments(pid_t id, std::string& executed_path, std::string& arguments)
{
    int name[] = {CTL_KERN, KERN_PROCARGS2, id};
    std::size_t size = 0;
    if (sysctl(name, 3, nullptr, &size, nullptr, 0) != 0) {
        return false;
    }
    std::string bytes(size, '\0');
    int count = 0;
    if (sysctl(name, 3, bytes.data(), &size, nullptr, 0) != 0 || size < sizeof count) {
        return false;
    }
    bytes.resize(size);
    std::memcpy(&count, bytes.data(), sizeof count);
    std::size_t at = sizeof count;
    const std::size_t end_of_path = std::min(bytes.find('\0', at), bytes.size());
    executed_path = bytes.substr(at, end_of_path - at);
    at = std::min(bytes.find_first_not_of('\0', end_of_path), bytes.size());
    std::size_t end = at;
    for (int i = 0; i < count && end < bytes.size(); ++i) {
        end = std::min(bytes.find('\0', end), bytes.size() - 1) + 1;
    }
    arguments = bytes.substr(at, end - at);
    return true;
}

class MacProcesses : public ProcessTable
{
public:
    MacProcesses() { mach_timebase_info(&m_timebase); }

    bool List(std::vector<Process>& processes, std::string& error) override
    {
        processes.clear();
        std::vector<pid_t> ids;
        if (!ListIds(ids, error)) {
            return false;
        }
        for (const pid_t id : ids) {
            Process process;
            process.id = id;
            if (Read(process)) {
                processes.push_back(process);
            }
        }
        return true;
    }

    bool ListIds(std::vector<pid_t>& ids, std::string& error) override
    {
        ids.clear();
        // Processes may be added between the two calls.
        int size = proc_listpids(PROC_RUID_ONLY, getuid(), nullptr, 0);
        if (size > 0) {
            ids.resize(static_cast<std::size_t>(size) / sizeof(pid_t) + 256);
            size = proc_listpids(PROC_RUID_ONLY, getuid(), ids.data(),
                                 static_cast<int>(ids.size() * sizeof(pid_t)));
        }
        if (size <= 0) {
            error = "the processes cannot be listed: " + std::string(std::strerror(errno));
            return false;
        }
        ids.resize(static_cast<std::size_t>(size) / sizeof(pid_t));
        ids.erase(std::remove(ids.begin(), ids.end(), 0), ids.end());
        return true;
    }

    bool IsSame(const Process& process) override
    {
        Process now = process;
        return Read(now) && now.birth == process.birth;
    }

    Executable ExecutableOf(const Process& process) override
    {
        Executable executable;
        char path[PROC_PIDPATHINFO_MAXSIZE] = {};
        if (proc_pidpath(process.id, path, sizeof path) > 0) {
            executable.path = path;
            return executable;
        }
        const int failure = errno;
        executable.is_denied = failure == EPERM;
        // The kernel does not name a file that has no directory entry any more.
        std::string executed_path;
        std::string arguments;
        if (failure == ENOENT && ReadArguments(process.id, executed_path, arguments) &&
            !executed_path.empty() && executed_path[0] == '/') {
            executable.path = executed_path;
            executable.is_deleted = true;
        }
        return executable;
    }

    std::optional<std::string> CommandLineOf(const Process& process) override
    {
        std::string executed_path;
        std::string arguments;
        return ReadArguments(process.id, executed_path, arguments)
                   ? std::optional<std::string>(arguments)
                   : std::nullopt;
    }

    // List returns no others.
    std::optional<uid_t> UserOf(const Process&) override { return getuid(); }

    std::string DirectoryOf(const Process& process) override
    {
        proc_vnodepathinfo info = {};
        const int size = proc_pidinfo(process.id, PROC_PIDVNODEPATHINFO, 0, &info, sizeof info);
        return size == static_cast<int>(sizeof info) ? TextOf(info.pvi_cdir.vip_path) : "";
    }

    std::string AppendedInputOf(const Process& process) override
    {
        vnode_fdinfowithpath info = {};
        const int size = proc_pidfdinfo(process.id, 0, PROC_PIDFDVNODEPATHINFO, &info, sizeof info);
        constexpr std::uint32_t kFlags = kOpenForWriting | O_APPEND;
        return size == static_cast<int>(sizeof info) && (info.pfi.fi_openflags & kFlags) == kFlags
                   ? TextOf(info.pvip.vip_path)
                   : "";
    }

private:
    // False for a process that has ended, even if its parent has not waited for it yet.
    bool Read(Process& process) const
    {
        proc_taskallinfo info = {};
        const int size = proc_pidinfo(process.id, PROC_PIDTASKALLINFO, 0, &info, sizeof info);
        if (size != static_cast<int>(sizeof info)) {
            return false;
        }
        const proc_bsdinfo& process_info = info.pbsd;
        process.parent = static_cast<pid_t>(process_info.pbi_ppid);
        process.birth = process_info.pbi_start_tvsec * 1000000 + process_info.pbi_start_tvusec;
        process.start = static_cast<std::int64_t>(process.birth / 1000);
        const std::uint64_t ticks = info.ptinfo.pti_total_user + info.ptinfo.pti_total_system;
        // Divides last: on Apple silicon a million ticks are 42 ms. The product of centuries of
        // processor time does not overflow.
        process.cpu =
            static_cast<std::int64_t>(ticks * m_timebase.numer / m_timebase.denom / 1000000);
        process.memory = info.ptinfo.pti_resident_size;
        process.has_executed = (process_info.pbi_flags & PROC_FLAG_EXEC) != 0;
        return true;
    }

    mach_timebase_info_data_t m_timebase = {1, 1};
};

}  // namespace

std::unique_ptr<ProcessTable> SystemProcesses()
{
    return std::make_unique<MacProcesses>();
}

}  // namespace launchlist
