#include <dlfcn.h>
#include <gtest/gtest.h>
#include <uuid/uuid.h>

#include <cctype>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <initializer_list>
#include <locale>
#include <stdexcept>
#include <string>
#include <vector>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "tests/support/utf8_reference.h"
#include "util/util.h"

// Makes the sanitizers' allocators return null when memory is exhausted, as other allocators do.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace {

const char* g_unparsed_uuid = nullptr;

}  // namespace

// Writes g_unparsed_uuid if it is set; otherwise what the system's function writes.
extern "C" void uuid_unparse(const uuid_t id, char* text)
{
    static const auto real =
        reinterpret_cast<decltype(&uuid_unparse)>(dlsym(RTLD_NEXT, "uuid_unparse"));
    if (g_unparsed_uuid != nullptr) {
        std::strcpy(text, g_unparsed_uuid);
    } else {
        real(id, text);
    }
}

namespace {

constexpr char kFromBytesError[] = "wstring_convert: from_bytes error";
constexpr char kToBytesError[] = "wstring_convert: to_bytes error";

// The message of the range error that `convert` throws; "" if it throws none.
template <typename Text, typename Result>
std::string RangeError(Result (*convert)(const Text&), const Text& text)
{
    try {
        convert(text);
        return "";
    } catch (const std::range_error& error) {
        return error.what();
    }
}

std::string Bytes(std::initializer_list<int> values)
{
    std::string bytes;
    for (const int value : values) {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

std::string Hex(const std::string& bytes)
{
    std::string hex;
    for (const char byte : bytes) {
        hex += "0123456789ABCDEF"[static_cast<unsigned char>(byte) >> 4];
        hex += "0123456789ABCDEF"[static_cast<unsigned char>(byte) & 15];
        hex += ' ';
    }
    return hex;
}

std::u32string AllScalarValues()
{
    std::u32string all;
    for (char32_t c = 0; c <= 0x10FFFF; ++c) {
        if (c < 0xD800 || c > 0xDFFF) {
            all += c;
        }
    }
    return all;
}

// `text` in UTF-8 as encoded by the standard library, which is reliable for scalar values.
std::string StandardUtf8(const std::u32string& text)
{
    using Facet = std::codecvt<char32_t, char, std::mbstate_t>;
    std::string bytes(4 * text.size(), '\0');
    std::mbstate_t state{};
    const char32_t* text_end = nullptr;
    char* bytes_end = nullptr;
    std::use_facet<Facet>(std::locale::classic())
        .out(state, text.data(), text.data() + text.size(), text_end, bytes.data(),
             bytes.data() + bytes.size(), bytes_end);
    bytes.resize(static_cast<std::size_t>(bytes_end - bytes.data()));
    return bytes;
}

void ExpectRejectedUnlessWellFormed(const std::string& bytes)
{
    const bool well_formed = DecodeByTable(bytes).has_value();
    EXPECT_EQ(RangeError(s2ws, bytes), well_formed ? "" : kFromBytesError) << Hex(bytes);
}

int ReferenceOctal(int value)
{
    int result = 0;
    for (const char digit : std::to_string(value)) {
        result = digit == '-' ? 0 : 8 * result + (digit - '0');
    }
    return value < 0 ? -result : result;
}

// Encodes Base64 through a text of bits, split into groups of six. A single remaining byte is
// padded with 0011.
std::string ReferenceBase64(const std::vector<unsigned char>& data)
{
    std::string bits;
    for (const unsigned char byte : data) {
        for (int i = 7; i >= 0; --i) {
            bits += (byte >> i) % 2 == 1 ? '1' : '0';
        }
    }
    const std::string fill[] = {"", "0011", "00"};
    const std::string padding[] = {"", "==", "="};
    bits += fill[data.size() % 3];
    std::string text;
    for (std::size_t i = 0; i < bits.size(); i += 6) {
        const auto value = std::stoul(bits.substr(i, 6), nullptr, 2);
        text += "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"[value];
    }
    return text + padding[data.size() % 3];
}

std::string Base64Of(const std::string& text)
{
    return base64(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

}  // namespace

TEST(Utf8, ConvertsTheEmptyText)
{
    EXPECT_EQ(s2ws(""), L"");
    EXPECT_EQ(ws2s(L""), "");
}

TEST(Utf8, ConvertsCharactersOfEveryLength)
{
    EXPECT_EQ(s2ws("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"), L"a\u00E9\u20AC\U0001F600z");
    EXPECT_EQ(ws2s(L"a\u00E9\u20AC\U0001F600z"), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z");
}

TEST(Utf8, ContinuesAfterANul)
{
    EXPECT_EQ(s2ws(std::string("a\0\xC3\xA9\0", 5)), std::wstring(L"a\0\u00E9\0", 4));
    EXPECT_EQ(ws2s(std::wstring(L"a\0\u00E9\0", 4)), std::string("a\0\xC3\xA9\0", 5));
}

TEST(Utf8, KeepsAByteOrderMarkAsACharacter)
{
    EXPECT_EQ(s2ws("\xEF\xBB\xBFx\xEF\xBB\xBF"), L"\uFEFFx\uFEFF");
    EXPECT_EQ(ws2s(L"\uFEFFx"), "\xEF\xBB\xBFx");
    EXPECT_EQ(ws2s(L"x"), "x");
}

TEST(Utf8, ConvertsEveryScalarValueBothWays)
{
    const std::u32string all = AllScalarValues();
    const std::wstring wide(all.begin(), all.end());
    const std::string bytes = StandardUtf8(all);
    EXPECT_TRUE(ws2s(wide) == bytes);
    EXPECT_TRUE(s2ws(bytes) == wide);
    for (const wchar_t c : wide) {
        const std::wstring text(1, c);
        ASSERT_EQ(s2ws(ws2s(text)), text);
    }
}

TEST(Utf8, RejectsATruncatedCharacterAtTheEnd)
{
    for (const char* bytes : {"\xC3", "a\xC3", "\xE2\x82", "\xE2", "\xF0\x9F\x98", "\xF0\x9F",
                              "\xF0", "\xC3\xA9\xC3"}) {
        EXPECT_EQ(RangeError(s2ws, std::string(bytes)), kFromBytesError) << Hex(bytes);
    }
}

TEST(Utf8, RejectsATruncatedCharacterInTheMiddle)
{
    for (const char* bytes : {"\xC3"
                              "a",
                              "\xE2\x82"
                              "a",
                              "\xF0\x9F\x98"
                              "a",
                              "\xE2\xC3\xA9"}) {
        EXPECT_EQ(RangeError(s2ws, std::string(bytes)), kFromBytesError) << Hex(bytes);
    }
}

TEST(Utf8, RejectsSurrogatesBothWays)
{
    for (int c = 0xD800; c <= 0xDFFF; ++c) {
        const std::string bytes = Bytes({0xED, 0x80 | (c >> 6 & 0x3F), 0x80 | (c & 0x3F)});
        EXPECT_EQ(RangeError(s2ws, bytes), kFromBytesError) << Hex(bytes);
        EXPECT_EQ(RangeError(ws2s, std::wstring(1, static_cast<wchar_t>(c))), kToBytesError) << c;
    }
    EXPECT_EQ(RangeError(s2ws, Bytes({0xED, 0xA0, 0xBD, 0xED, 0xB8, 0x80})), kFromBytesError);
}

TEST(Utf8, RejectsOverlongForms)
{
    for (const std::string& bytes :
         {Bytes({0xC0, 0x80}), Bytes({0xC1, 0xBF}), Bytes({0xE0, 0x80, 0x80}),
          Bytes({0xE0, 0x9F, 0xBF}), Bytes({0xF0, 0x80, 0x80, 0x80}),
          Bytes({0xF0, 0x8F, 0xBF, 0xBF}), Bytes({0xF8, 0x88, 0x80, 0x80, 0x80}),
          Bytes({0xFC, 0x84, 0x80, 0x80, 0x80, 0x80})}) {
        EXPECT_EQ(RangeError(s2ws, bytes), kFromBytesError) << Hex(bytes);
    }
}

TEST(Utf8, RejectsValuesAbove10FFFF)
{
    EXPECT_EQ(RangeError(s2ws, Bytes({0xF4, 0x90, 0x80, 0x80})), kFromBytesError);
    EXPECT_EQ(RangeError(s2ws, Bytes({0xF5, 0x80, 0x80, 0x80})), kFromBytesError);
    for (const std::uint32_t unit : {0x110000u, 0x1FFFFFu, 0x7FFFFFFFu, 0x80000041u, 0xFFFFFFFFu}) {
        EXPECT_EQ(RangeError(ws2s, std::wstring(1, static_cast<wchar_t>(unit))), kToBytesError)
            << unit;
    }
}

TEST(Utf8, RejectsExactlyTheBytesOutsideTheUnicodeTable)
{
    for (int a = 0; a <= 0xFF; ++a) {
        ExpectRejectedUnlessWellFormed(Bytes({a}));
        for (int b = 0; b <= 0xFF; ++b) {
            ExpectRejectedUnlessWellFormed(Bytes({a, b}));
        }
    }
    // Longer sequences, of the bytes at the limits of the table's ranges.
    const int borders[] = {0x00, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xFF};
    for (int a = 0x80; a <= 0xFF; ++a) {
        for (const int b : borders) {
            for (const int c : borders) {
                ExpectRejectedUnlessWellFormed(Bytes({a, b, c}));
                for (const int d : borders) {
                    ExpectRejectedUnlessWellFormed(Bytes({a, b, c, d}));
                }
            }
        }
    }
}

TEST(NewUUID, IsTheTextOfARandomUUID)
{
    const std::string uuid = NewUUID();
    ASSERT_EQ(uuid.size(), 36u);
    for (std::size_t i = 0; i < uuid.size(); ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            EXPECT_EQ(uuid[i], '-') << uuid;
        } else {
            EXPECT_TRUE(std::isxdigit(static_cast<unsigned char>(uuid[i]))) << uuid;
        }
    }
    EXPECT_EQ(uuid[14], '4') << uuid;  // Version and variant of a random UUID.
    EXPECT_NE(std::string("89abAB").find(uuid[19]), std::string::npos) << uuid;
}

TEST(NewUUID, KeepsTheLetterCaseOfTheSystem)
{
    g_unparsed_uuid = "01234567-89aB-4CdE-8f01-23456789AbCd";
    EXPECT_EQ(NewUUID(), g_unparsed_uuid);
    g_unparsed_uuid = nullptr;
}

TEST(NewUUID, IsDifferentEveryTime)
{
    EXPECT_NE(NewUUID(), NewUUID());
}

TEST(OctalToDecimal, ReadsDecimalDigitsAsOctal)
{
    const struct
    {
        int value, result;
    } cases[] = {
        {0, 0},     {1, 1},     {7, 7},   {10, 8},   {17, 15},   {100, 64},
        {755, 493}, {777, 511}, {-1, -1}, {-10, -8}, {-17, -15}, {-755, -493},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(octalToDecimal(c.value), c.result) << c.value;
    }
}

TEST(OctalToDecimal, KeepsTheValueOfTheDigits8And9)
{
    EXPECT_EQ(octalToDecimal(8), 8);
    EXPECT_EQ(octalToDecimal(9), 9);
    EXPECT_EQ(octalToDecimal(18), 16);
    EXPECT_EQ(octalToDecimal(99), 81);
    EXPECT_EQ(octalToDecimal(-89), -73);
}

TEST(OctalToDecimal, IsExactForEveryNumberOfDigits)
{
    for (int value = 3; value < 1000000000; value = value * 3 + 1) {
        EXPECT_EQ(octalToDecimal(value), ReferenceOctal(value)) << value;
        EXPECT_EQ(octalToDecimal(-value), ReferenceOctal(-value)) << -value;
    }
    for (const int value : {1777777777, 1999999999, INT_MAX, INT_MIN}) {
        EXPECT_EQ(octalToDecimal(value), ReferenceOctal(value)) << value;
    }
}

TEST(Base64, AgreesWithTheReferenceForEveryLength)
{
    std::vector<unsigned char> data;
    for (int length = 1; length <= 300; ++length) {
        data.push_back(static_cast<unsigned char>(length * 73 + 11));
        EXPECT_EQ(base64(data.data(), data.size()), ReferenceBase64(data)) << length;
    }
}

TEST(Base64, AgreesWithTheReferenceForEveryLoneByte)
{
    for (int byte = 0; byte <= 0xFF; ++byte) {
        const std::vector<unsigned char> data = {static_cast<unsigned char>(byte)};
        EXPECT_EQ(base64(data.data(), 1), ReferenceBase64(data)) << byte;
    }
}

TEST(Base64, HasBitsOfAnEqualsSignAfterALoneByte)
{
    EXPECT_EQ(Base64Of("a"), "YT==");
    EXPECT_EQ(Base64Of("hell"), "aGVsbD==");
    EXPECT_EQ(Base64Of(std::string(1, '\0')), "AD==");
    EXPECT_EQ(Base64Of("\xFF"), "/z==");
}

TEST(Base64, IsStandardForOtherLengths)
{
    EXPECT_EQ(Base64Of("abc"), "YWJj");
    EXPECT_EQ(Base64Of("hello"), "aGVsbG8=");
    EXPECT_EQ(Base64Of("ab"), "YWI=");
    EXPECT_EQ(Base64Of("\xFB\xEF\xFF"), "++//");
}

TEST(Base64, InsertsNoLineBreaks)
{
    EXPECT_EQ(Base64Of(std::string(3000, '\0')), std::string(4000, 'A'));
}

TEST(Base64, IsNullWithoutData)
{
    const unsigned char byte = 0;
    EXPECT_EQ(base64(nullptr, 1), nullptr);
    EXPECT_EQ(base64(nullptr, 0), nullptr);
    EXPECT_EQ(base64(&byte, 0), nullptr);
}

TEST(Base64, IsNullWhenMemoryIsExhausted)
{
    // More than any machine has. The memory is allocated before the data is read.
    const unsigned char byte = 0;
    EXPECT_EQ(base64(&byte, 3ul << 58), nullptr);
    EXPECT_EQ(Base64Of("abc"), "YWJj");
}

TEST(Base64, IsNullWhenTheTextWouldNotFitTheAddressSpace)
{
    const unsigned char byte = 0;
    for (const unsigned long length : {ULONG_MAX, ULONG_MAX - 1, ULONG_MAX - 2, 3ul << 62,
                                       (3ul << 62) - 2, (3ul << 62) - 3, 1ul << 63}) {
        EXPECT_EQ(base64(&byte, length), nullptr) << length;
    }
}

TEST(Base64, KeepsItsTextUntilTheNextCall)
{
    const char* text = base64(reinterpret_cast<const unsigned char*>("abc"), 3);
    EXPECT_EQ(s2ws(text), L"YWJj");
    EXPECT_EQ(octalToDecimal(10), 8);
    EXPECT_STREQ(text, "YWJj");
    EXPECT_EQ(Base64Of("hello"), "aGVsbG8=");
}

#ifdef __GLIBC__
TEST(Base64, FreesItsTextAtTheNextCallEvenIfThatGivesNull)
{
    const std::string data(3000, 'x');
    base64(nullptr, 0);
    const std::size_t before = mallinfo2().uordblks;
    base64(reinterpret_cast<const unsigned char*>(data.data()), data.size());
    if (mallinfo2().uordblks == before) {
        GTEST_SKIP() << "glibc's allocator is not in use; a sanitizer reports the leak itself";
    }
    base64(nullptr, 0);
    EXPECT_EQ(mallinfo2().uordblks, before);
}
#endif
