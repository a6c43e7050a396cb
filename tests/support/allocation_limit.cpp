#include "tests/support/allocation_limit.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::size_t g_limit = SIZE_MAX;
int g_refused = 0;

}  // namespace

AllocationLimit::AllocationLimit(std::size_t bytes)
{
    g_refused = 0;
    g_limit = bytes;
}

AllocationLimit::~AllocationLimit()
{
    g_limit = SIZE_MAX;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): only an object sets a limit.
int AllocationLimit::refused() const
{
    return g_refused;
}

void* operator new(std::size_t size)
{
    if (size > g_limit) {
        ++g_refused;
        throw std::bad_alloc();
    }
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
