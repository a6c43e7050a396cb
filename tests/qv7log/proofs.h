// The long proofs: many threads and processes on one log that rotates all the time, and whatever
// can happen to it. Each works in `folder`, which is empty at first, and returns what went wrong,
// or "".
//
// A proof forks; call it while the process has a single thread.
#pragma once

#include <string>

// 8 threads log and rotate while `forks` children are forked, each of which logs one record: no
// child hangs, every record is there once and whole, those of a thread in order.
std::string ForksWhileRotating(const std::string& folder, int forks);

// 8 processes with 4 threads each log `records` records a thread: every record is there once and
// whole, those of a thread in order.
std::string ProcessesRotating(const std::string& folder, int records);

// On a disk that `folder` is all of: 4 threads log while it fills up and is freed, `rounds` times.
// Every record is there once or counted in a record that tells how many were lost.
std::string DiskFull(const std::string& folder, int rounds);

// The log is removed `removals` times while 8 threads log: every record is there once and whole, in
// the log or in a removed file, where none is later than a second after the removal, or counted in
// a record that tells how many were lost.
std::string RemovedUnderLoad(const std::string& folder, int removals);

// `rounds` times, a process with 4 threads is killed while it logs and rotates, and leaves a forked
// child behind that goes on logging. Every record that was completed is there once, and a second
// process never stops rotating.
std::string KilledWhileRotating(const std::string& folder, int rounds);

// `count` records with random names and texts, made of what the escaping minds and of any bytes,
// are one safe line each and are read back exactly. `folder` stays empty.
std::string EscapingRoundTrips(const std::string& folder, int count);
