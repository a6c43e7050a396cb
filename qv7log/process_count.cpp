#include "qv7log/process_count.h"

namespace qv7log {
namespace {

std::uint64_t Pack(std::uint32_t count, pid_t process)
{
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(process)) << 32 | count;
}

// The count in `value`; 0 if it belongs to another process.
std::uint32_t Unpack(std::uint64_t value, pid_t process)
{
    return value >> 32 == static_cast<std::uint32_t>(process) ? static_cast<std::uint32_t>(value)
                                                              : 0;
}

}  // namespace

void ProcessCount::Add(std::uint32_t count, pid_t process)
{
    std::uint64_t known = m_value.load();
    std::uint64_t next = 0;
    do {
        const std::uint32_t before = Unpack(known, process);
        next = Pack(before + count < before ? UINT32_MAX : before + count, process);
    } while (!m_value.compare_exchange_weak(known, next));
}

std::uint32_t ProcessCount::Take(pid_t process)
{
    return m_value.load() == 0 ? 0 : Unpack(m_value.exchange(0), process);
}

}  // namespace qv7log
