#include <limits.h>
#include <sys/syslimits.h>

#include <cstdint>
#include <cstring>

#include "tools/launchlist/list/execution_limits.h"

namespace launchlist {

namespace {

// The first four bytes of a Mach-O file, and of one for several processors, in either byte order.
constexpr std::uint32_t kMagics[] = {0xFEEDFACE, 0xFEEDFACF, 0xCEFAEDFE,
                                     0xCFFAEDFE, 0xCAFEBABE, 0xBEBAFECA};

}  // namespace

std::size_t MaxArgumentLength()
{
    return 0;
}

std::size_t MaxArgumentBytes()
{
    return ARG_MAX;
}

// What exceeds the limit by itself is too long with any environment.
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
    std::uint32_t magic = 0;
    if (head.size() < sizeof magic) {
        return BinaryFormat::kNone;
    }
    std::memcpy(&magic, head.data(), sizeof magic);
    for (const std::uint32_t known : kMagics) {
        if (magic == known) {
            return BinaryFormat::kNative;
        }
    }
    return BinaryFormat::kNone;
}

// FormatOf names no loader: all programs of this system use the same one.
bool CanLoad(const std::string&, const std::string&)
{
    return true;
}

}  // namespace launchlist
