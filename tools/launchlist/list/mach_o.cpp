#include "tools/launchlist/list/mach_o.h"

#include <cstddef>

namespace launchlist {

namespace {

// The first four bytes as a little-endian number. The system executes only programs with kMagic64;
// those with the reversed bytes are for processors that it never supported.
constexpr std::uint32_t kMagic64 = 0xFEEDFACF;
constexpr std::uint32_t kMagic32 = 0xFEEDFACE;
constexpr std::uint32_t kReversed64 = 0xCFFAEDFE;
constexpr std::uint32_t kReversed32 = 0xCEFAEDFE;

// A file for several processors: this number, the number of processors, and a record for each, all
// big-endian. Compiled Java classes begin with the same four bytes; the next four are their
// version, which is larger than any number of processors.
constexpr std::uint32_t kUniversal = 0xCAFEBABE;
constexpr std::uint32_t kFirstJavaVersion = 43;
constexpr std::size_t kRecordSize = 20;

constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kProcessorOffset = 4;
constexpr std::size_t kTypeOffset = 12;
constexpr std::uint32_t kExecutable = 2;

std::uint32_t ReadLowFirst(const std::string& text, std::size_t offset)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) {
        value = value << 8U | static_cast<unsigned char>(text[offset + i]);
    }
    return value;
}

std::uint32_t ReadHighFirst(const std::string& text, std::size_t offset)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value = value << 8U | static_cast<unsigned char>(text[offset + i]);
    }
    return value;
}

BinaryFormat FormatOfSeveral(const std::string& head, std::uint32_t processor)
{
    const std::uint32_t count = head.size() < 8 ? 0 : ReadHighFirst(head, 4);
    if (count >= kFirstJavaVersion) {
        return BinaryFormat::kNone;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t record = 8 + i * kRecordSize;
        if (record + kRecordSize > head.size()) {
            return BinaryFormat::kDamaged;
        }
        if (ReadHighFirst(head, record) == processor) {
            return BinaryFormat::kNative;
        }
    }
    return count == 0 ? BinaryFormat::kDamaged : BinaryFormat::kForeign;
}

}  // namespace

BinaryFormat MachOFormatOf(const std::string& head, std::uint32_t processor)
{
    if (head.size() < 4) {
        return BinaryFormat::kNone;
    }
    if (ReadHighFirst(head, 0) == kUniversal) {
        return FormatOfSeveral(head, processor);
    }
    const std::uint32_t magic = ReadLowFirst(head, 0);
    if (magic == kMagic32 || magic == kReversed32 || magic == kReversed64) {
        return BinaryFormat::kForeign;
    }
    if (magic != kMagic64) {
        return BinaryFormat::kNone;
    }
    if (head.size() < kHeaderSize || ReadLowFirst(head, kTypeOffset) != kExecutable) {
        return BinaryFormat::kDamaged;
    }
    return ReadLowFirst(head, kProcessorOffset) == processor ? BinaryFormat::kNative
                                                             : BinaryFormat::kForeign;
}

}  // namespace launchlist
