// The product's error codes, thrown by value.
#pragma once

#include <cstdint>

// 32 bits wide; a value read from JSON may be a code that has no name here.
enum AERROR : std::int32_t
{
    AERROR_NOT_FOUND = 4,
    AERROR_PARSE_FAILED = 6001,
};
