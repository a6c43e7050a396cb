// Argument vectors that are too long for the system.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "tools/launchlist/list/argument_vector.h"
#include "tools/launchlist/list/finding_kinds.h"

namespace launchlist {

struct TooLong
{
    Kind kind;          // kArgumentTooLong or kArgumentsTooLong.
    std::size_t index;  // In the vector, of the argument that is too long by itself.
    std::string message;
};

// Why execv would refuse `arguments`, with the environment and the stack limit of this process.
std::optional<TooLong> FindTooLong(const ArgumentVector& arguments);

}  // namespace launchlist
