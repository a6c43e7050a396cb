// Keeps one item of the launch list running.
//
// A supervisor thread starts the item's program, waits until it ends, logs the end and restarts the
// program after kRestartPause, until the object is destroyed. docs/man/launch-list.5 describes
// items, programs and arguments.
//
// Threads: an object must be created and destroyed by one thread at a time, and never destroyed by
//          its own supervisor: the thread's join with itself ends the process.
//          `m_pid` and `m_running` are deliberately shared with the supervisor without a lock. The
//          destructor runs in the SIGTERM handler, which would deadlock on a lock that the
//          interrupted thread holds. The price is a race: a destructor that runs after the
//          supervisor has checked `m_running` and before it has forked does not kill the new child,
//          and waits until that child ends by itself.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <thread>

#include "json/json_object.h"

class ChildProc
{
public:
    // Keeps a deep copy of `item` and starts its supervisor at once. Throws std::system_error
    // "thread constructor failed: REASON" if no thread can be created, and an exception of the JSON
    // library if "name" is an object or an array.
    ChildProc(std::string app_name, JsonObject item);

    // Kills the child and joins the supervisor, which stops one restart pause after the child's
    // end. Deliberately sends signal 9 to `m_pid` without checking it, although kill() gives two of
    // its values special meanings:
    //  0   before the first fork, and in a forked child: every process of the process group
    // -1   after a failed fork: every process that the user may signal
    // Any other value may be the id of a child that was reaped already, and the system may have
    // given that id to another process. Other components of the product were written against this:
    // they start the launcher in its own process group and rely on the group's end. With a check of
    // the value, an item without a program would be restarted forever, and a stop before the first
    // fork would wait for a child that nothing kills.
    ~ChildProc();

    ChildProc(const ChildProc&) = delete;
    ChildProc& operator=(const ChildProc&) = delete;

    // Tells the supervisor to stop and kills the child, as the destructor does, without waiting.
    void Stop();

private:
    void StartSupervisor();
    void Supervise();
    void WaitForEnd();
    void Execute(std::string& program);

    pid_t m_pid = 0;         // Result of the last fork; not reset when the child has ended.
    bool m_running = true;   // Whether the supervisor restarts the program after its end.
    std::string m_app_name;  // The launcher's first argument.
    std::string m_name;      // The item's "name", for the log.
    JsonObject m_item{nullptr};
    std::shared_ptr<std::thread> m_thread;
};
