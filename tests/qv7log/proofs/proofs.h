// Long tests of a log that many threads and processes constantly write to and rotate, each with one
// kind of disturbance.
//
// Every proof works in `directory`, which must be empty, and returns a description of what went
// wrong, or "". It forks, so the calling process must have a single thread.
#pragma once

#include <string>

// 8 threads log and rotate while `forks` children are forked, each of which logs one record. No
// child hangs, every record is there once and whole, and those of a thread are in order.
std::string ForksWhileRotating(const std::string& directory, int forks);

// 8 processes with 4 threads each log `records` records per thread. Every record is there once and
// whole, and those of a thread are in order.
std::string ProcessesRotating(const std::string& directory, int records);

// 4 threads log while the disk, which must contain nothing but `directory`, fills up and is freed
// `rounds` times. Every record is there once or is counted in a record that reports losses.
std::string DiskFull(const std::string& directory, int rounds);

// The log is removed `removals` times while 8 threads log. Every record is there once and whole, in
// the log or in a removed file, or is counted in a record that reports losses. No record in a
// removed file is more than a second younger than the removal.
std::string RemovedUnderLoad(const std::string& directory, int removals);

// `rounds` times, a process with 4 threads is killed while it logs and rotates. A child that it has
// forked continues to log. Every completed record is there once, and a second process continues to
// rotate.
std::string KilledWhileRotating(const std::string& directory, int rounds);

// Two processes with 4 threads each log and start `programs` programs, which inherit the log and
// clear its O_APPEND flag and its offset. Every record is there once and whole, and those of a
// thread are in order.
std::string InheritedDescriptorDisturbed(const std::string& directory, int programs);

// 4 threads log `records` records each although an old file cannot be renamed. No file is replaced
// or removed, and every record is there. Does nothing unless the user is root.
std::string OldFileUnmovable(const std::string& directory, int records);

// `rounds` times, 8 processes log beyond their limit for the size of a file. None is killed, and
// every record is there or is counted in a record that reports losses.
std::string SizeLimitReached(const std::string& directory, int rounds);

// `forks` children log an error description and wide characters while a thread of the parent calls
// setlocale(). No child hangs.
std::string ForksInSetlocale(const std::string& directory, int forks);

// `threads` threads are cancelled while they log and rotate. The log is still rotated afterwards.
std::string ThreadsCancelled(const std::string& directory, int threads);

// With every `step`th umask, a log is started, rotated, and started and rotated again by another
// process.
std::string EveryMask(const std::string& directory, int step);

// 3 processes with 4 threads each log `records` records per thread, alternately through two logs of
// one file. Every record is there once, and those of a thread are in order.
std::string SameLogTwice(const std::string& directory, int records);

// A fork handler that was registered before InitLogger logs in `forks` children of each of two
// threads. Every record has the process id of the child.
std::string ForkHandlersRegisteredEarlier(const std::string& directory, int forks);

// `children` children, each with its parent's process id, 1, are forked while the parent rotates
// the log. They can rotate and reopen it. Does nothing where PID namespaces are not permitted.
std::string ChildrenInPidNamespaces(const std::string& directory, int children);
