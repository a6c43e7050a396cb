// The launcher's globals and the functions beside `main`, for its platform files and its tests.
//
// Exit status of the program: 1 after a stop by SIGTERM, 0 if it failed.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "launcher/child_proc.h"

// One entry per started item, under the item's name; the only owner of its ChildProc. The child of
// an entry may be dead: during the restart pause, or for good after a failed fork. `main` fills the
// map and the SIGTERM handler empties it, deliberately without a lock: the handler would wait
// forever for a lock that the interrupted thread holds. A stop while items are still being started
// may therefore crash the launcher.
extern std::unordered_map<std::string, std::shared_ptr<ChildProc>> g_child_map;

// `main` holds the mutex around its only wait on the condition; the SIGTERM handler notifies.
extern std::mutex g_process_mutex;
extern std::condition_variable g_process_condition;

// Closes descriptors 0, 1 and 2 and installs the SIGTERM handler; changes nothing else of the
// process. The files opened next get these numbers, and every child inherits them. They are not
// redirected to /dev/null: the product's helpers were written against the descriptors they get.
void InitDaemon();

// On SIGTERM: empties g_child_map, which kills every child with signal 9 and joins the supervisors
// one after another, then wakes `main`. Ignores any other signal.
//
// The handler deliberately frees memory, takes locks and blocks for at least 50 ms per item, which
// POSIX does not allow in a handler. The components that stop the launcher were written against
// this: the children are killed whatever `main` is doing, and after a stop in the steady state, the
// launcher exits with status 1 only once every child is dead and its end is logged. A handler that
// only set a flag would leave the children running until the last item has been started. The price:
// - A stop while items are still being started kills those started so far; `main` then starts the
//   rest and waits for another SIGTERM.
// - If the system runs the handler on a supervisor thread, the thread's join with itself ends the
//   process.
// - If the handler interrupts a fork, it may wait forever for supervisors that need the locks which
//   that fork holds.
void sigterm_handler(int sig);

// Reads the file at `path` into `data`, up to its first NUL. Returns whether the file held at least
// one byte; if not, `data` is unchanged.
//
// Never returns for a path that can be opened but not read, such as a directory, since only the end
// of the file ends the loop. Other components of the product were written against this: for them,
// status 0 without a log record means a missing or empty list, and a check for read errors would
// give it a third meaning.
bool ReadData(std::string path, std::string& data);
