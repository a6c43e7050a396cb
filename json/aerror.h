// The product's error codes, thrown by value.
#pragma once

#include <cstdint>

// 32 bits wide. A code read from JSON need not be one of the named values.
enum AERROR : std::int32_t
{
    AERROR_NOT_FOUND = 4,
    AERROR_PARSE_FAILED = 6001,
};
