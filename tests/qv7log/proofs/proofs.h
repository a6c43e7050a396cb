// Long tests of a log that many threads and processes write to and rotate all the time, each with
// one kind of disturbance.
//
// Every proof works in `folder`, which must be empty, and returns a description of what went wrong,
// or "". It forks, so that the calling process must have a single thread.
#pragma once

#include <string>

// 8 threads log and rotate while `forks` children are forked, each of which logs one record. No
// child hangs, every record is there once and whole, and those of a thread are in order.
std::string ForksWhileRotating(const std::string& folder, int forks);

// 8 processes with 4 threads each log `records` records per thread. Every record is there once and
// whole, and those of a thread are in order.
std::string ProcessesRotating(const std::string& folder, int records);

// 4 threads log while the disk, which must contain nothing but `folder`, fills up and is freed
// `rounds` times. Every record is there once or is counted in a record that reports losses.
std::string DiskFull(const std::string& folder, int rounds);

// The log is removed `removals` times while 8 threads log. Every record is there once and whole, in
// the log or in a removed file, or is counted in a record that reports losses. No record in a
// removed file is more than a second younger than the removal.
std::string RemovedUnderLoad(const std::string& folder, int removals);

// `rounds` times, a process with 4 threads is killed while it logs and rotates. A child that it has
// forked continues to log. Every completed record is there once, and a second process continues to
// rotate.
std::string KilledWhileRotating(const std::string& folder, int rounds);
