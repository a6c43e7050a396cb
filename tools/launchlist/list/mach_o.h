// The header of a Mach-O file, the binary format of macOS.
#pragma once

#include <cstdint>
#include <string>

#include "tools/launchlist/list/execution_limits.h"

namespace launchlist {

// The numbers of processors in Mach-O headers.
inline constexpr std::uint32_t kMachX86_64 = 0x01000007;
inline constexpr std::uint32_t kMachArm64 = 0x0100000C;

// What the first bytes of a file say about it on the processor `processor`. A file may contain
// programs for several processors; the one for `processor` is assumed to be intact.
BinaryFormat MachOFormatOf(const std::string& head, std::uint32_t processor);

}  // namespace launchlist
