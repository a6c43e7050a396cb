// What the launcher's entry shares with its platform files and its tests.
//
// Exit status of the program: 1 after the ordinary stop on SIGTERM, 0 for every failure.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "launcher/child_proc.h"

// One entry per running item, under the item's name; the only owner of its ChildProc. Filled by
// `main` and emptied by the SIGTERM handler, without a lock.
extern std::unordered_map<std::string, std::shared_ptr<ChildProc>> g_child_map;

// `main` holds the mutex around its one wait on the condition; the SIGTERM handler notifies.
extern std::mutex g_process_mutex;
extern std::condition_variable g_process_condition;

// Closes descriptors 0, 1 and 2 and installs the SIGTERM handler; nothing else of the process
// changes. What is opened next takes the free numbers, and every child inherits it there.
void InitDaemon();

// Empties g_child_map, which kills every child with signal 9 and joins its supervisor one after
// another, then wakes `main`. Any other signal does nothing.
// Ordinary work in a signal handler, on purpose: it blocks for 50 ms and more per item. Where the
// system runs it on a supervisor's thread, the join of the own thread ends the process; on one that
// is in the middle of a fork it may wait for ever, for supervisors that wait for the fork's locks.
void sigterm_handler(int sig);

// Reads the file at `path` into `data`, up to its first NUL; true when it held at least a byte. On
// false, `data` is as it was. Does not return for what opens but fails to read, like a folder:
// only the end of the file ends the reading.
bool ReadData(std::string path, std::string& data);
