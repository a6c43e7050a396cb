#include "tools/launchlist/list/argument_length.h"

#include <unistd.h>

#include <cstring>

#include "tools/launchlist/list/execution_limits.h"

extern char** environ;

namespace launchlist {

namespace {

// A string and the pointer to it.
std::size_t Size(std::size_t length)
{
    return length + 1 + sizeof(char*);
}

std::size_t SizeOfEnvironment()
{
    std::size_t size = 0;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        size += Size(std::strlen(*variable));
    }
    return size;
}

}  // namespace

std::optional<TooLong> FindTooLong(const std::vector<std::string>& arguments)
{
    static const std::size_t environment = SizeOfEnvironment();
    const std::size_t longest = MaxArgumentLength();
    std::size_t total = environment;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::size_t length = arguments[i].size();
        if (longest != 0 && length > longest) {
            return TooLong{Kind::kArgumentTooLong, i,
                           "the argument has " + std::to_string(length) +
                               " bytes; the system accepts " + std::to_string(longest)};
        }
        // The system keeps the path of the program twice.
        total += Size(length) + (i == 0 ? length + 1 : 0);
    }
    const std::size_t most = MaxArgumentBytes();
    if (most != 0 && total > most) {
        return TooLong{Kind::kArgumentsTooLong, 0,
                       "the arguments and the environment exceed the " + std::to_string(most) +
                           " bytes that the system accepts"};
    }
    return std::nullopt;
}

}  // namespace launchlist
