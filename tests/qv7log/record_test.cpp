#include "qv7log/record.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qv7log/entry_end.h"
#include "qv7log/record_reader.h"

using qv7log::Entry;
using qv7log::Record;

namespace {

std::string Escape(const std::string& text, char* (*put)(char*, std::string_view) = qv7log::PutText)
{
    std::string out(text.size() * qv7log::kEscapedSize + qv7log::kTimestampSize, '\0');
    out.resize(static_cast<std::size_t>(put(out.data(), text) - out.data()));
    return out;
}

std::string Line(const std::string& text, const std::string& name = "launcher",
                 LOGLEVEL level = LOGLEVEL_ERROR, std::size_t cut = 0)
{
    const std::string escaped_name = Escape(name, qv7log::PutName);
    const qv7log::Heading heading = {{1795228811, 123000000}, level, escaped_name, 4711};
    std::string line(qv7log::kMaxFraming + text.size() * qv7log::kEscapedSize, '\0');
    char* end = qv7log::PutText(qv7log::PutHeading(line.data(), heading), text);
    end = cut != 0 ? qv7log::PutCutMark(end, cut) : end;
    line.resize(static_cast<std::size_t>(end - line.data()));
    return line;
}

struct Text
{
    std::string text;
    std::string escaped;
};

const Text kTexts[] = {
    {"", ""},
    {"[LAUNCHER  ] Start to fork a", "[LAUNCHER  ] Start to fork a"},
    {"a b~", "a b~"},
    {"\\", "\\\\"},
    {"\\n", "\\\\n"},
    {"a\nb\rc\td", "a\\nb\\rc\\td"},
    {std::string("\0", 1), "\\x00"},
    {"\x01\x1b[2J\x1f", "\\x01\\x1b[2J\\x1f"},
    {"\x7f", "\\x7f"},
    // printable UTF-8
    {"\xc2\xa0", "\xc2\xa0"},
    {"\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
    {"\xe2\x80\xa7\xe2\x80\xaa", "\xe2\x80\xa7\xe2\x80\xaa"},
    {"\xed\x9f\xbf\xee\x80\x80", "\xed\x9f\xbf\xee\x80\x80"},
    {"\xf4\x8f\xbf\xbf", "\xf4\x8f\xbf\xbf"},
    // C1 control characters and line separators of Unicode
    {"\xc2\x80\xc2\x9b\xc2\x9f", "\\u0080\\u009b\\u009f"},
    {"\xe2\x80\xa8\xe2\x80\xa9", "\\u2028\\u2029"},
    // not UTF-8
    {"\x9b", "\\x9b"},
    {"\xff\xfe", "\\xff\\xfe"},
    {"\xc3", "\\xc3"},
    {"\xc3\xc3\xa9", "\\xc3\xc3\xa9"},
    {"\xe2\x82", "\\xe2\\x82"},
    {"\xe2\x82z", "\\xe2\\x82z"},
    {"\xf0\x9f\x98", "\\xf0\\x9f\\x98"},
    {"\xc0\xaf", "\\xc0\\xaf"},
    {"\xc1\xbf", "\\xc1\\xbf"},
    {"\xe0\x9f\xbf", "\\xe0\\x9f\\xbf"},
    {"\xf0\x8f\xbf\xbf", "\\xf0\\x8f\\xbf\\xbf"},
    {"\xed\xa0\x80", "\\xed\\xa0\\x80"},
    {"\xed\xbf\xbf", "\\xed\\xbf\\xbf"},
    {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
    {"\xf8\x88\x80\x80\x80", "\\xf8\\x88\\x80\\x80\\x80"},
    // timestamps, and text that resembles a mark
    {"Z", "Z"},
    {"at 2026-11-21T02:26:11.123Z", "at 2026-11-21T02:26:11.123\\Z"},
    {"2026-11-21T02:26:11.123z", "2026-11-21T02:26:11.123z"},
    {"026-11-21T02:26:11.123Z", "026-11-21T02:26:11.123Z"},
    {"\xe2\x80\xa8-11-21T02:26:11.123Z", "\\u2028-11-21T02:26:11.123\\Z"},
    {"\\<3 bytes cut>", "\\\\<3 bytes cut>"},
};

TEST(PutText, EscapesControlCharactersIllFormedBytesAndTimestamps)
{
    for (const Text& row : kTexts) {
        EXPECT_EQ(Escape(row.text), row.escaped);
    }
}

TEST(PutName, AlsoEscapesBlanksAndBrackets)
{
    EXPECT_EQ(Escape("launcher-1/x", qv7log::PutName), "launcher-1/x");
    EXPECT_EQ(Escape("a b[1]", qv7log::PutName), "a\\x20b\\x5b1\\x5d");
    EXPECT_EQ(Escape(" 26-11-21T02:26:11.123Z", qv7log::PutName), "\\x2026-11-21T02:26:11.123\\Z");
}

TEST(PutHeading, PadsTheLevel)
{
    struct Row
    {
        int level;
        const char* line;
    };
    const Row rows[] = {
        {1, "2026-11-21T02:40:11.123Z DEBUG    launcher[4711] x"},
        {2, "2026-11-21T02:40:11.123Z MESSAGE  launcher[4711] x"},
        {4, "2026-11-21T02:40:11.123Z WARNING  launcher[4711] x"},
        {8, "2026-11-21T02:40:11.123Z ERROR    launcher[4711] x"},
        {16, "2026-11-21T02:40:11.123Z CRITICAL launcher[4711] x"},
        {17, "2026-11-21T02:40:11.123Z VERBOSE  launcher[4711] x"},
        {0, "2026-11-21T02:40:11.123Z 0        launcher[4711] x"},
        {-1, "2026-11-21T02:40:11.123Z -1       launcher[4711] x"},
        {-2147483647 - 1, "2026-11-21T02:40:11.123Z -2147483648 launcher[4711] x"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(Line("x", "launcher", static_cast<LOGLEVEL>(row.level)), row.line);
    }
}

TEST(SizeOfWholeCharacters, ExcludesAnIncompleteCharacter)
{
    struct Row
    {
        const char* text;
        std::size_t size;
    };
    const Row rows[] = {
        {"", 0},
        {"ab", 2},
        {"a\xc3", 1},
        {"a\xc3\xa9", 3},
        {"a\xe2\x82", 1},
        {"a\xe2\x82\xac", 4},
        {"a\xf0\x9f\x98", 1},
        {"a\xf0\x9f\x98\x80", 5},
        {"\x80\x80\x80\x80", 4},
        {"a\xff", 2},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(qv7log::SizeOfWholeCharacters(row.text), row.size) << row.text;
    }
}

TEST(Unescape, RestoresTheText)
{
    for (const Text& row : kTexts) {
        std::string text;
        ASSERT_TRUE(qv7log::Unescape(row.escaped, text)) << row.escaped;
        EXPECT_EQ(text, row.text);
    }
}

TEST(Unescape, RefusesUnknownEscapes)
{
    const char* const rows[] = {"\\",    "a\\",   "\\a",    "\\x",     "\\x1",
                                "\\xg1", "\\x+1", "\\u202", "\\u202g", "\\u0041"};
    for (const char* row : rows) {
        std::string text;
        EXPECT_FALSE(qv7log::Unescape(row, text)) << row;
    }
}

TEST(ParseRecord, ReadsEveryField)
{
    Record record;
    ASSERT_TRUE(qv7log::ParseRecord(Line("a\nb", "x y", LOGLEVEL_CRITICAL, 12), record));
    EXPECT_EQ(record.time, "2026-11-21T02:40:11.123Z");
    EXPECT_EQ(record.level, "CRITICAL");
    EXPECT_EQ(record.name, "x y");
    EXPECT_EQ(record.process, 4711);
    EXPECT_EQ(record.text, "a\nb");
    EXPECT_EQ(record.cut, 12U);
}

TEST(ParseRecord, DoesNotTakeEscapedTextForAMark)
{
    Record record;
    ASSERT_TRUE(qv7log::ParseRecord(Line("\\<12 bytes cut>"), record));
    EXPECT_EQ(record.text, "\\<12 bytes cut>");
    EXPECT_EQ(record.cut, 0U);
}

TEST(ParseRecord, RefusesLinesThatAreNotRecords)
{
    const char* const rows[] = {
        "",
        "hello",
        "2026-11-21T02:40:11.123Z",
        "2026-11-21T02:40:11.123Z ERROR    launcher[4711]",
        "2026-11-21T02:40:11.123Z ERROR    launcher[4711]x",
        "2026-11-21T02:40:11.123Z ERROR    launcher[x] x",
        "2026-11-21T02:40:11.123Z ERROR    launcher x",
        "2026-11-21T02:40:11.123Z ERROR launcher[4711] x",
        "2026-11-21T02:40:11.123Z          launcher[4711] x",
        "2026-11-21T02:40:11.123Z ERROR    launcher[4711] \\q",
        "2026-11-21T02:40:11.123  ERROR    launcher[4711] x",
    };
    for (const char* row : rows) {
        Record record;
        EXPECT_FALSE(qv7log::ParseRecord(row, record)) << row;
    }
}

TEST(NextEntry, FindsARecordAfterATornOne)
{
    const std::string first = Line("first");
    const std::string second = Line("second");
    for (std::size_t size = 1; size <= first.size(); ++size) {
        const std::string log = first.substr(0, size) + second + "\n" + first + "\n";
        std::string_view rest = log;
        Entry entry;
        ASSERT_TRUE(qv7log::NextEntry(rest, entry));
        EXPECT_FALSE(entry.is_record);
        EXPECT_EQ(entry.raw, first.substr(0, size));
        ASSERT_TRUE(qv7log::NextEntry(rest, entry));
        ASSERT_TRUE(entry.is_record) << log;
        EXPECT_EQ(entry.record.text, "second");
        ASSERT_TRUE(qv7log::NextEntry(rest, entry));
        EXPECT_TRUE(entry.is_record);
        EXPECT_FALSE(qv7log::NextEntry(rest, entry));
    }
}

TEST(NextEntry, RefusesARecordWithoutLineEnd)
{
    const std::string log = "\nforeign\n" + Line("whole, but for the line end");
    std::string_view rest = log;
    Entry entry;
    for (const std::string& raw : {std::string(), std::string("foreign"), log.substr(9)}) {
        ASSERT_TRUE(qv7log::NextEntry(rest, entry));
        EXPECT_FALSE(entry.is_record);
        EXPECT_EQ(entry.raw, raw);
    }
    EXPECT_FALSE(qv7log::NextEntry(rest, entry));
}

// An iterator that counts how often a byte is examined.
class CountingIterator
{
public:
    CountingIterator(const char* at, std::size_t& count) : m_at(at), m_count(&count) {}
    char operator*() const
    {
        ++*m_count;
        return *m_at;
    }
    CountingIterator& operator++()
    {
        ++m_at;
        return *this;
    }
    CountingIterator operator+(std::ptrdiff_t size) const { return {m_at + size, *m_count}; }
    CountingIterator operator-(std::ptrdiff_t size) const { return {m_at - size, *m_count}; }
    std::ptrdiff_t operator-(const CountingIterator& other) const { return m_at - other.m_at; }
    bool operator!=(const CountingIterator& other) const { return m_at != other.m_at; }
    const char* Get() const { return m_at; }

private:
    const char* m_at;
    std::size_t* m_count;
};

TEST(FindEntryEnd, ExaminesEachByteAFewTimesWhateverTheLogContains)
{
    const std::string timestamp = "2026-11-21T02:26:11.123Z";
    const std::string pieces[] = {timestamp,       "\n", "Z", "x", "026-11-21T02:26:11.123Z",
                                  timestamp + "\n"};
    for (const std::string& piece : pieces) {
        std::string log;
        while (log.size() < 100000) {
            log += piece;
        }
        std::size_t examined = 0;
        const CountingIterator end(log.data() + log.size(), examined);
        for (CountingIterator at(log.data(), examined); at != end;) {
            const CountingIterator entry_end = qv7log::FindEntryEnd(at, end);
            at = entry_end != end && *entry_end == '\n' ? entry_end + 1 : entry_end;
        }
        EXPECT_LE(examined, log.size() * 6) << piece;
    }
}

}  // namespace
