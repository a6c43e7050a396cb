#include "tools/launchlist/list/argument_length.h"

#include "tools/launchlist/list/execution_limits.h"

namespace launchlist {

namespace {

// A string and the pointer to it.
std::size_t Size(std::size_t length)
{
    return length + 1 + sizeof(char*);
}

}  // namespace

std::optional<TooLong> FindTooLong(const ArgumentVector& arguments)
{
    const std::size_t longest = MaxArgumentLength();
    std::size_t total = EnvironmentBytes();
    std::size_t i = 0;
    for (const ArgumentRun& run : arguments) {
        const std::size_t length = run.text.size();
        if (longest != 0 && length > longest) {
            return TooLong{Kind::kArgumentTooLong, i,
                           "the argument has " + std::to_string(length) +
                               " bytes; the system accepts " + std::to_string(longest)};
        }
        // The system keeps the path of the program twice.
        total += Size(length) * run.count + (i == 0 ? length + 1 : 0);
        i += run.count;
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
