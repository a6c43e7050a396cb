// Log records: everything written must be read back, and found among other text.
// Input: a line with the program's name, a line with the number of bytes to cut off, then the text.
// The text is also read as a log.
#include <algorithm>
#include <string_view>
#include <vector>

#include "qv7log/record.h"
#include "qv7log/record_reader.h"
#include "qv7log/timestamp.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/utf8_reference.h"

namespace {

std::string Escaped(char* (*put)(char*, std::string_view), const std::string& text)
{
    std::vector<char> space(text.size() * qv7log::kEscapedSize);
    return std::string(space.data(), put(space.data(), text));
}

bool IsPrintable(char32_t c)
{
    return c >= 0x20 && !(c >= 0x7F && c <= 0x9F) && c != 0x2028 && c != 0x2029;
}

bool ContainsTimestamp(const std::string& text)
{
    for (std::size_t i = 0; i + qv7log::kTimestampSize <= text.size(); ++i) {
        if (qv7log::IsTimestamp(text.data() + i)) {
            return true;
        }
    }
    return false;
}

// Checks what record.h promises for everything that is written.
void CheckEscaped(const std::string& escaped, const std::string& text)
{
    const std::optional<std::u32string> characters = DecodeByTable(escaped);
    Require(characters && std::all_of(characters->begin(), characters->end(), IsPrintable),
            "what is written is printable UTF-8");
    Require(!ContainsTimestamp(escaped), "no timestamp is written");
    std::string read;
    Require(qv7log::Unescape(escaped, read) && read == text, "what is written can be read back");
}

// Returns a record as the log writes it, without the last `cut` bytes of the text.
std::string RecordOf(const std::string& name, const std::string& text, std::size_t cut)
{
    const std::string shorter = text.substr(0, text.size() - cut);
    std::vector<char> space(qv7log::kMaxFraming + name.size() * qv7log::kEscapedSize +
                            shorter.size() * qv7log::kEscapedSize);
    const std::string escaped_name = Escaped(qv7log::PutName, name);
    char* out =
        qv7log::PutHeading(space.data(), {{1'795'000'000, 0}, LOGLEVEL_ERROR, escaped_name, 4711});
    out = qv7log::PutText(out, shorter);
    if (cut != 0) {
        out = qv7log::PutCutMark(out, cut);
    }
    *out++ = '\n';
    return std::string(space.data(), out);
}

void CheckRecord(const std::string& name, const std::string& text, std::size_t cut)
{
    const std::string record = RecordOf(name, text, cut);
    // As the only record, and after the beginning of a torn one.
    for (const std::string& before : {std::string(), record.substr(0, record.size() / 2)}) {
        const std::string log = before + record;
        std::string_view rest = log;
        qv7log::Entry entry;
        Require(before.empty() || (qv7log::NextEntry(rest, entry) && !entry.is_record),
                "a torn record is not a record");
        Require(qv7log::NextEntry(rest, entry) && entry.is_record, "a record is found");
        Require(entry.raw == record.substr(0, record.size() - 1), "a record is found completely");
        Require(entry.record.name == name && entry.record.process == 4711 &&
                    entry.record.level == "ERROR",
                "a record says who wrote it");
        Require(entry.record.text == text.substr(0, text.size() - cut) && entry.record.cut == cut,
                "a record says what was written");
        Require(!qv7log::NextEntry(rest, entry), "nothing follows the last record");
    }
}

// Any bytes can be read as a log, and the entries together are these bytes.
void CheckLog(const std::string& log)
{
    std::string_view rest = log;
    qv7log::Entry entry;
    std::string read;
    while (qv7log::NextEntry(rest, entry)) {
        read += entry.raw;
        if (read.size() < log.size() && log[read.size()] == '\n' &&
            rest.size() == log.size() - read.size() - 1) {
            read += '\n';
        }
        Require(log.size() - read.size() == rest.size(), "each entry is removed from the log");
    }
    Require(read == log, "the entries together are the log");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::string name = input.TakeLine().substr(0, qv7log::kMaxName);
    const unsigned wanted_cut = input.TakeNumber(100);
    const std::string text = input.Rest();

    CheckEscaped(Escaped(qv7log::PutText, text), text);
    const std::string escaped_name = Escaped(qv7log::PutName, name);
    CheckEscaped(escaped_name, name);
    Require(escaped_name.find_first_of(" []") == std::string::npos,
            "a name contains none of the characters that end it");

    const std::size_t whole = qv7log::SizeOfWholeCharacters(std::string_view(text).substr(
        0, text.size() - std::min<std::size_t>(wanted_cut, text.size())));
    CheckRecord(name, text, text.size() - whole);
    CheckLog(text);
    std::string ignored;
    qv7log::Unescape(text, ignored);
    return 0;
}
