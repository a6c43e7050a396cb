#include "launcher/child_proc.h"

#include <alloca.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <system_error>

#include "launcher/launch_item.h"
#include "launcher/log_messages.h"
#include "launcher/supervision.h"
#include "logging/log.h"

ChildProc::ChildProc(std::string app_name, JsonObject item)
{
    // Assigned in the body: a copy-constructed member would remain a view of the caller's document.
    m_item = item;
    m_app_name = app_name;
    m_name = ItemName(m_item);
    StartSupervisor();
}

ChildProc::~ChildProc()
{
    Stop();
    if (m_thread != nullptr && m_thread->joinable()) {
        m_thread->join();
    }
}

void ChildProc::Stop()
{
    m_running = false;
    // Deliberately unchecked: the values 0 and -1 signal a process group or every process, and the
    // product depends on it; see the destructor's comment.
    kill(m_pid, SIGKILL);
}

void ChildProc::StartSupervisor()
{
    try {
        m_thread = std::make_shared<std::thread>([this] { Supervise(); });
    } catch (const std::system_error& error) {
        // Makes the text the same everywhere: libstdc++ gives only the system's reason.
        throw std::system_error(error.code(), "thread constructor failed");
    }
}

// A child whose program cannot be executed stays in this loop and becomes another supervisor of the
// item. A child without a program leaves the loop and exits normally, because its only thread has
// returned: the exit-time destructors run over its copy of g_child_map and signal the process
// group. Neither child calls _exit, because other components of the product were written against
// this: with _exit, a program that cannot be executed would log an end 20 times a second instead of
// none, and an item without a program would be restarted forever instead of ending the launcher.
void ChildProc::Supervise()
{
    while (m_running) {
        std::string program = ItemProgram(m_item);
        __LOG__A(logger, LOGLEVEL_DEBUG, kItemStarts, m_name.c_str());
        m_pid = fork();
        if (m_pid < 0) {
            __LOG__A(logger, LOGLEVEL_ERROR, kForkFailed, m_name.c_str());
            break;
        }
        if (m_pid > 0) {
            WaitForEnd();
        } else if (program.empty()) {
            __LOG__A(logger, LOGLEVEL_ERROR, kItemHasNoProgram, m_name.c_str());
            break;
        } else {
            Execute(program);
        }
        std::this_thread::sleep_for(kRestartPause);
    }
    m_running = false;
}

void ChildProc::WaitForEnd()
{
    int wait_status = 0;
    const pid_t result = waitpid(m_pid, &wait_status, 0);
    __LOG__A(logger, LOGLEVEL_ERROR, kItemEnded, m_name.c_str(), m_pid, result, wait_status);
}

// Runs in the child; returns only if `program` cannot be executed. A separate function because
// alloca memory is freed only on return: in the loop above, each generation of children that cannot
// execute the program would start with less stack.
//
// "argc" is deliberately unchecked, since the product's lists were written against that: -1 starts
// the program with an empty argument vector, and a check for negative counts would refuse it. Below
// -1, and with a vector that does not fit the stack, writes go beyond the vector or the stack, and
// the child usually crashes.
void ChildProc::Execute(std::string& program)
{
    const int count = ItemArgumentCount(m_item) + 1;
    auto slots = static_cast<char**>(alloca((static_cast<std::size_t>(count) + 1) * sizeof(char*)));
    slots[0] = program.data();
    for (int i = 1; i < count; ++i) {
        const std::string argument = ItemArgument(m_item, i - 1);
        slots[i] = strdup(argument.c_str());
    }
    slots[count] = nullptr;

    execv(program.c_str(), slots);

    for (int i = 1; i < count; ++i) {
        std::free(slots[i]);
    }
}
