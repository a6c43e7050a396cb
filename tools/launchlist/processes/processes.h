// The processes of this system, as far as this user may examine them.
//
// Nothing is signalled, started or changed. Every answer is a snapshot: a process may end, execute
// another program or write another command line between two calls. Its id may then belong to
// another process, so a caller that has collected several answers about a process calls IsSame
// last: if that is true, all of them are about this process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace launchlist {

struct Process
{
    pid_t id = 0;
    pid_t parent = 0;
    std::uint64_t birth = 0;  // Distinguishes the process from an earlier one with the same id.
    std::int64_t start = 0;   // When it was forked, in milliseconds since 1970.
    std::int64_t cpu = 0;     // The processor time that it has used, in milliseconds.
    std::optional<std::uint64_t> memory;  // The resident memory in bytes.
    bool is_zombie = false;
    // Whether it has executed a program since it was forked. True if the system does not say.
    bool has_executed = true;
    // Differs after the process has executed another program, or the same with other arguments; 0
    // if the system does not say. Without address randomization, arguments and an environment of
    // the same lengths give the same value.
    std::uint64_t image = 0;
};

struct Executable
{
    std::string path;         // Absolute and without symbolic links; "" if it is unknown.
    bool is_deleted = false;  // The file at the path is gone or has been replaced.
    bool is_denied = false;   // This user may not know the path.
};

class ProcessTable
{
public:
    virtual ~ProcessTable() = default;

    // Every process that this user can see, in any order; on macOS, only those of this user. On
    // false, `error` says why there are none.
    virtual bool List(std::vector<Process>& processes, std::string& error) = 0;

    // The ids of these processes, in any order. Costs much less than List.
    virtual bool ListIds(std::vector<pid_t>& ids, std::string& error) = 0;

    // Whether `process` has not ended.
    virtual bool IsSame(const Process& process) = 0;

    virtual Executable ExecutableOf(const Process& process) = 0;

    // The arguments, the program's own name first, each with a NUL at its end; "" for an empty
    // vector. The process itself may have written anything else there. Nothing if it is unknown.
    virtual std::optional<std::string> CommandLineOf(const Process& process) = 0;

    // The real user; nothing if it is unknown.
    virtual std::optional<uid_t> UserOf(const Process& process) = 0;

    // The working directory; "" if it is unknown.
    virtual std::string DirectoryOf(const Process& process) = 0;

    // The path of the file that descriptor 0 is open for appending to; "" if there is none, or if
    // it is unknown. It is the file's present path: a log that was rotated has another name.
    virtual std::string AppendedInputOf(const Process& process) = 0;
};

// The processes of the running system.
std::unique_ptr<ProcessTable> SystemProcesses();

}  // namespace launchlist
