// Compares the conversion from UTF-8 to wide text and back with the table-driven decoder.
// Input: bytes, taken as UTF-8 and, four at a time, as wide text.
#include <cstring>
#include <optional>
#include <stdexcept>

#include "tests/fuzz/fuzz.h"
#include "tests/support/utf8_reference.h"
#include "util/util.h"

namespace {

template <typename Result, typename Text>
std::optional<Result> Converted(Result (*convert)(const Text&), const Text& text,
                                const std::string& message)
{
    try {
        return convert(text);
    } catch (const std::range_error& error) {
        Require(error.what() == message, "the refusal has the promised text");
        return std::nullopt;
    }
}

std::u32string Units(const std::wstring& text)
{
    return std::u32string(text.begin(), text.end());
}

void CheckBytes(const std::string& bytes)
{
    const std::optional<std::wstring> wide =
        Converted(s2ws, bytes, "wstring_convert: from_bytes error");
    const std::optional<std::u32string> expected = DecodeByTable(bytes);
    Require(wide.has_value() == expected.has_value(), "well-formed text and no other is decoded");
    if (wide) {
        Require(Units(*wide) == *expected, "the characters are the table's");
        Require(ws2s(*wide) == bytes, "encoding gives the bytes back");
    }
}

void CheckUnits(const std::wstring& wide)
{
    bool are_characters = true;
    for (const char32_t unit : Units(wide)) {
        are_characters = are_characters && (unit < 0xD800 || (unit > 0xDFFF && unit < 0x110000));
    }
    const std::optional<std::string> bytes =
        Converted(ws2s, wide, "wstring_convert: to_bytes error");
    Require(bytes.has_value() == are_characters, "characters and nothing else are encoded");
    if (bytes) {
        Require(DecodeByTable(*bytes) == Units(wide), "the table decodes what was encoded");
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    CheckBytes(FuzzInput(data, size).Rest());

    std::wstring any_units(size / sizeof(wchar_t), L'\0');
    std::memcpy(any_units.data(), data, any_units.size() * sizeof(wchar_t));
    CheckUnits(any_units);
    // Few 32-bit numbers are characters, but most shorter ones are.
    for (wchar_t& unit : any_units) {
        unit = static_cast<wchar_t>(static_cast<char32_t>(unit) & 0x1FFFFF) >> (unit & 15);
    }
    CheckUnits(any_units);
    return 0;
}
