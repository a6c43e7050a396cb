#include <elf.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

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

bool ReadAt(int descriptor, std::uint64_t offset, void* data, std::size_t size)
{
    const ssize_t count = pread(descriptor, data, size, static_cast<off_t>(offset));
    return count == static_cast<ssize_t>(size);
}

// Repeats checks of the kernel: it refuses a program if it cannot read the table of segments or the
// path of the loader.
template <typename Header, typename Segment>
BinaryFormat ReadSegments(const std::string& head, int descriptor, std::string& loader)
{
    constexpr std::size_t kMaxTableSize = 65536;
    Header header = {};
    if (head.size() < sizeof header) {
        return BinaryFormat::kDamaged;
    }
    std::memcpy(&header, head.data(), sizeof header);
    if (header.e_phentsize != sizeof(Segment) || header.e_phnum == 0 ||
        header.e_phnum > kMaxTableSize / sizeof(Segment)) {
        return BinaryFormat::kDamaged;
    }
    std::vector<Segment> segments(header.e_phnum);
    if (!ReadAt(descriptor, header.e_phoff, segments.data(), segments.size() * sizeof(Segment))) {
        return BinaryFormat::kDamaged;
    }
    const auto names_loader = [](const Segment& segment) { return segment.p_type == PT_INTERP; };
    const auto segment = std::find_if(segments.begin(), segments.end(), names_loader);
    if (segment == segments.end()) {
        return BinaryFormat::kNative;
    }
    if (segment->p_filesz < 2 || segment->p_filesz > PATH_MAX) {
        return BinaryFormat::kDamaged;
    }
    std::string path(segment->p_filesz, '\0');
    if (!ReadAt(descriptor, segment->p_offset, path.data(), path.size()) || path.back() != '\0') {
        return BinaryFormat::kDamaged;
    }
    loader = path.substr(0, path.find('\0'));
    return BinaryFormat::kNative;
}

// The machine that an ELF header is for; it is at the same place in a 32-bit header. EM_NONE if
// `head` is not such a header.
Elf64_Half MachineOf(const std::string& head)
{
    Elf64_Half machine = EM_NONE;
    if (head.size() >= sizeof(Elf32_Ehdr) && head.compare(0, SELFMAG, ELFMAG) == 0) {
        std::memcpy(&machine, head.data() + offsetof(Elf64_Ehdr, e_machine), sizeof machine);
    }
    return machine;
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

const char* RegistrationDirectory()
{
    return "/proc/sys/fs/binfmt_misc";
}

BinaryFormat FormatOf(const std::string& head, int descriptor, std::string& loader)
{
    if (head.compare(0, SELFMAG, ELFMAG) != 0) {
        return BinaryFormat::kNone;
    }
    if (head.size() < sizeof(Elf32_Ehdr)) {
        return BinaryFormat::kDamaged;
    }
    const Elf64_Half machine = MachineOf(head);
    if (kMachine != EM_NONE && machine != kMachine && machine != kOtherMachine) {
        return BinaryFormat::kForeign;
    }
    Elf64_Half type = ET_NONE;
    std::memcpy(&type, head.data() + offsetof(Elf64_Ehdr, e_type), sizeof type);
    if (type != ET_EXEC && type != ET_DYN) {
        return BinaryFormat::kDamaged;
    }
    if (kMachine == EM_NONE) {
        return BinaryFormat::kNative;
    }
    // The machine decides between 32 and 64 bits; the kernel does not read the class.
    return machine == kMachine ? ReadSegments<Elf64_Ehdr, Elf64_Phdr>(head, descriptor, loader)
                               : ReadSegments<Elf32_Ehdr, Elf32_Phdr>(head, descriptor, loader);
}

bool CanLoad(const std::string& loader_head, const std::string& head)
{
    return MachineOf(loader_head) != EM_NONE && MachineOf(loader_head) == MachineOf(head);
}

}  // namespace launchlist
