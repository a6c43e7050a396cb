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
    // Assigned, not constructed: only the assignment turns a view into a copy of its own.
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
    // No look at the value: 0 and -1 mean what they mean to kill, see the header.
    kill(m_pid, SIGKILL);
}

void ChildProc::StartSupervisor()
{
    try {
        m_thread = std::make_shared<std::thread>([this] { Supervise(); });
    } catch (const std::system_error& error) {
        // One text everywhere; libstdc++ gives only the system's part of it.
        throw std::system_error(error.code(), "thread constructor failed");
    }
}

// In a child whose program could not be executed this loop goes on: the child becomes a further
// supervisor of the item. A child without a program leaves it and ends as a process does whose only
// thread returns, through the exit-time destructors, over its own copy of the launcher's children.
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

// Runs in the child; returns only when `program` cannot be executed. A function of its own because
// alloca gives its memory back no earlier than when a function returns, and a child that goes on as
// a supervisor would start its own children with ever less stack.
//
// The argument count is taken as it stands in the item: -1 gives an empty vector, and below that
// nothing guards the writes.
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
