#include "tools/launchlist/list/mach_o.h"

#include <gtest/gtest.h>

#include <string>

using namespace launchlist;

namespace {

std::string LowFirst(std::uint32_t value)
{
    std::string bytes;
    for (unsigned int shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(value >> shift & 0xFFU);
    }
    return bytes;
}

std::string HighFirst(std::uint32_t value)
{
    const std::string bytes = LowFirst(value);
    return {bytes.rbegin(), bytes.rend()};
}

// A 64-bit header: magic number, processor, its model, file type, and four more numbers.
std::string Header(std::uint32_t processor, std::uint32_t type, std::uint32_t magic = 0xFEEDFACF)
{
    return LowFirst(magic) + LowFirst(processor) + LowFirst(0) + LowFirst(type) +
           std::string(16, '\0');
}

// The record of one processor: its number, its model, and where its program is.
std::string Record(std::uint32_t processor)
{
    return HighFirst(processor) + std::string(16, '\0');
}

std::string Several(std::uint32_t count, const std::string& records)
{
    return HighFirst(0xCAFEBABE) + HighFirst(count) + records;
}

}  // namespace

TEST(MachOFormatOf, ReadsTheProcessorAndTheType)
{
    constexpr std::uint32_t kPowerPc = 18;
    constexpr std::uint32_t kObject = 1;
    constexpr std::uint32_t kProgram = 2;
    constexpr std::uint32_t kLibrary = 6;
    const struct
    {
        std::string head;
        BinaryFormat format;
    } kTable[] = {
        {Header(kMachArm64, kProgram), BinaryFormat::kNative},
        {Header(kMachX86_64, kProgram), BinaryFormat::kForeign},
        {Header(kMachArm64, kLibrary), BinaryFormat::kDamaged},
        {Header(kMachArm64, kObject), BinaryFormat::kDamaged},
        {Header(kMachArm64, kProgram).substr(0, 31), BinaryFormat::kDamaged},
        {Header(kMachArm64, kProgram, 0xFEEDFACE), BinaryFormat::kForeign},
        {Header(kPowerPc, kProgram, 0xCEFAEDFE), BinaryFormat::kForeign},
        {Header(kPowerPc, kProgram, 0xCFFAEDFE), BinaryFormat::kForeign},
        {Several(2, Record(kMachX86_64) + Record(kMachArm64)), BinaryFormat::kNative},
        {Several(1, Record(kMachX86_64)), BinaryFormat::kForeign},
        {Several(2, Record(kMachX86_64)), BinaryFormat::kDamaged},
        {Several(0, ""), BinaryFormat::kDamaged},
        {HighFirst(0xCAFEBABE), BinaryFormat::kDamaged},
        {Several(52, Record(kMachArm64)), BinaryFormat::kNone},  // A Java class.
        {"", BinaryFormat::kNone},
        {"\xCF\xFA\xED", BinaryFormat::kNone},
        {"echo started\n", BinaryFormat::kNone},
    };
    for (const auto& row : kTable) {
        EXPECT_EQ(MachOFormatOf(row.head, kMachArm64), row.format) << &row - kTable;
    }
    EXPECT_EQ(MachOFormatOf(Header(kMachX86_64, 2), kMachX86_64), BinaryFormat::kNative);
    EXPECT_EQ(MachOFormatOf(Header(kMachArm64, 2), kMachX86_64), BinaryFormat::kForeign);
}
