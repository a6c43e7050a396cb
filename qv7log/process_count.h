// A counter that belongs to one process.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

namespace qv7log {

// A forked child, which has a copy of its parent's counter, reads 0. Every function may be called
// from any thread. The count stops at UINT32_MAX.
class ProcessCount
{
public:
    void Add(std::uint32_t count, pid_t process);

    // Returns the count and sets it to 0.
    std::uint32_t Take(pid_t process);

private:
    std::atomic<std::uint64_t> m_value{0};  // process id << 32 | count
};

}  // namespace qv7log
