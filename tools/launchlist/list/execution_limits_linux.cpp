#include <elf.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "tools/launchlist/list/execution_limits.h"

namespace launchlist {

namespace {

#if defined(__x86_64__)
constexpr Elf64_Half kMachine = EM_X86_64;
constexpr Elf64_Half kOtherMachine = EM_386;
#elif defined(__aarch64__)
constexpr Elf64_Half kMachine = EM_AARCH64;
constexpr Elf64_Half kOtherMachine = EM_ARM;
#else
constexpr Elf64_Half kMachine = EM_NONE;  // Nothing counts as foreign.
constexpr Elf64_Half kOtherMachine = EM_NONE;
#endif

// The dynamic loader that a native 64-bit program asks for; "" if there is none.
std::string LoaderOf(const Elf64_Ehdr& header, int descriptor)
{
    for (int i = 0; i < std::min<int>(header.e_phnum, 64); ++i) {
        Elf64_Phdr segment = {};
        const auto offset =
            static_cast<off_t>(header.e_phoff + sizeof segment * static_cast<std::size_t>(i));
        if (pread(descriptor, &segment, sizeof segment, offset) != sizeof segment) {
            return "";
        }
        if (segment.p_type != PT_INTERP || segment.p_filesz > 4096) {
            continue;
        }
        std::string path(segment.p_filesz, '\0');
        const ssize_t count =
            pread(descriptor, path.data(), path.size(), static_cast<off_t>(segment.p_offset));
        return count == static_cast<ssize_t>(path.size()) ? path.substr(0, path.find('\0')) : "";
    }
    return "";
}

}  // namespace

// MAX_ARG_STRLEN of the kernel, 32 pages, counts the NUL.
std::size_t MaxArgumentLength()
{
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) * 32 - 1;
}

// A quarter of the stack limit; the kernel never accepts more than 6 MiB, whatever that limit is.
std::size_t MaxArgumentBytes()
{
    constexpr long kMost = 6L * 1024 * 1024;
    const long limit = sysconf(_SC_ARG_MAX);
    return limit <= 0 ? 0 : static_cast<std::size_t>(std::min(limit, kMost));
}

std::size_t EnvironmentBytes()
{
    std::size_t size = 0;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        size += std::strlen(*variable) + 1 + sizeof(char*);
    }
    return size;
}

int MaxScriptDepth()
{
    return 5;
}

std::size_t MaxInterpreterLine()
{
    return 256;
}

BinaryFormat FormatOf(const std::string& head, int descriptor, std::string& interpreter)
{
    if (head.compare(0, SELFMAG, ELFMAG) != 0) {
        return BinaryFormat::kNone;
    }
    Elf64_Ehdr header = {};
    // Type and machine are at the same place in a 32-bit header.
    if (head.size() < sizeof(Elf32_Ehdr)) {
        return BinaryFormat::kDamaged;
    }
    std::memcpy(&header, head.data(), std::min(head.size(), sizeof header));
    if (kMachine != EM_NONE && header.e_machine != kMachine && header.e_machine != kOtherMachine) {
        return BinaryFormat::kForeign;
    }
    if (header.e_type != ET_EXEC && header.e_type != ET_DYN) {
        return BinaryFormat::kDamaged;
    }
    if (header.e_machine == kMachine && header.e_ident[EI_CLASS] == ELFCLASS64) {
        if (head.size() < sizeof header || header.e_phentsize != sizeof(Elf64_Phdr) ||
            header.e_phnum == 0) {
            return BinaryFormat::kDamaged;
        }
        interpreter = LoaderOf(header, descriptor);
    }
    return BinaryFormat::kNative;
}

}  // namespace launchlist
