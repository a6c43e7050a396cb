#include <limits.h>
#include <sys/syslimits.h>

#include <cstdint>

#include "tools/launchlist/list/execution_limits.h"
#include "tools/launchlist/list/mach_o.h"

namespace launchlist {

namespace {

#if defined(__aarch64__)
constexpr std::uint32_t kProcessor = kMachArm64;
#else
constexpr std::uint32_t kProcessor = kMachX86_64;
#endif

}  // namespace

std::size_t MaxArgumentLength()
{
    return 0;
}

std::size_t MaxArgumentBytes()
{
    return ARG_MAX;
}

// Counted as empty: arguments that exceed the limit by themselves are too long with any
// environment.
std::size_t EnvironmentBytes()
{
    return 0;
}

// The interpreter of a script must not be a script.
int MaxScriptDepth()
{
    return 1;
}

std::size_t MaxInterpreterLine()
{
    return 512;
}

const char* RegistrationDirectory()
{
    return "";
}

BinaryFormat FormatOf(const std::string& head, int, std::string&)
{
    return MachOFormatOf(head, kProcessor);
}

// FormatOf names no loader: all programs of this system use the same one.
bool CanLoad(const std::string&, const std::string&)
{
    return true;
}

}  // namespace launchlist
