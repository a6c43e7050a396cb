// Keeps one item of the launch list running.
//
// A supervisor thread starts the item's program, waits for its end, logs it and starts it again
// 50 ms later, until the object is destroyed. Items, programs and arguments: docs/launch-list.md.
//
// Threads: made and destroyed by one thread at a time, which must not be the supervisor: a join of
//          the own thread ends the process. `m_pid` and `m_running` are shared with the supervisor
//          without a lock, on purpose: a destructor that runs between the supervisor's look at
//          `m_running` and its fork leaves the new child running, and waits for its end.
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
    // "thread constructor failed" when there is no thread to be had, and what JsonObject throws
    // when "name" is an object or an array.
    ChildProc(std::string app_name, JsonObject item);

    // Kills the child and joins the supervisor, which ends 50 ms after the child. The signal goes
    // to `m_pid` whatever it is: before the first fork that is 0, the own process group; after a
    // failed one -1, every process that the user may signal.
    ~ChildProc();

    ChildProc(const ChildProc&) = delete;
    ChildProc& operator=(const ChildProc&) = delete;

    // Lets the supervisor end and kills the child, as the destructor does, without waiting.
    void Stop();

private:
    void StartSupervisor();
    void Supervise();
    void WaitForEnd();
    void Execute(std::string& program);

    pid_t m_pid = 0;         // What the last fork returned; not reset when the child has ended.
    bool m_running = true;   // Whether the supervisor goes on after the child's end.
    std::string m_app_name;  // The launcher's first argument.
    std::string m_name;      // The item's "name", for the log.
    JsonObject m_item{nullptr};
    std::shared_ptr<std::thread> m_thread;
};
