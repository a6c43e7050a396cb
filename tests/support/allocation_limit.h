// Bounds the memory that code under test may ask for. The source defines operator new and operator
// delete for the test program.
#pragma once

#include <cstddef>

// While an object exists, every allocation of more than `bytes` throws std::bad_alloc. Only one
// object may exist at a time, while the program has one thread.
class AllocationLimit
{
public:
    explicit AllocationLimit(std::size_t bytes);
    ~AllocationLimit();
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;

    // How many allocations were refused.
    int refused() const;
};
