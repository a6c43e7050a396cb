#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "json/json_object.h"
#include "util/string_util.h"

namespace {

// The message of the std::range_error that `act` throws.
template <typename Act>
std::string RangeErrorOf(Act act)
{
    try {
        act();
    } catch (const std::range_error& error) {
        return error.what();
    }
    return "nothing";
}

std::wstring Wide(JsonObject object)
{
    std::wstring text = object;
    return text;
}

const wchar_t kBeyondUnicode = static_cast<wchar_t>(0x110000);
const wchar_t kSurrogate = static_cast<wchar_t>(0xD800);

}  // namespace

// Insert

TEST(Insert, SetsAMemberOrReplacesIt)
{
    JsonObject document(R"({"k":{"old":1},"l":2})");
    EXPECT_TRUE(document.Insert("k", JsonObject("[1]")));
    EXPECT_TRUE(document.Insert("m", JsonObject("3")));
    EXPECT_EQ(document.ToText(), R"({"k":[1],"l":2,"m":3})");
}

TEST(Insert, TurnsNullIntoAnObject)
{
    JsonObject document(nullptr);
    EXPECT_TRUE(document.Insert("k", JsonObject("1")));
    EXPECT_EQ(document.ToText(), R"({"k":1})");
    JsonObject other(nullptr);
    EXPECT_TRUE(other.Insert("k", L"x"));
    EXPECT_EQ(other.ToText(), R"({"k":"x"})");
}

TEST(Insert, CopiesTheValueOfAViewDeeply)
{
    JsonObject document("{}");
    {
        JsonObject source(R"({"a":[1]})");
        document.Insert("k", source.GetObject("a"));
        source["a"][0] = std::string("x");
    }
    EXPECT_EQ(document.ToText(), R"({"k":[1]})");
}

TEST(Insert, CopiesTheValueOfAnOwnerDeeply)
{
    JsonObject document("{}");
    JsonObject source("[1]");
    JsonObject null(nullptr);
    document.Insert("k", source);
    document.Insert("n", null);
    source[0] = std::string("x");
    null = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"k":[1],"n":null})");
}

TEST(Insert, AcceptsAViewOfItsOwnDocument)
{
    JsonObject document(R"({"a":{"b":1}})");
    document.Insert("root", document.GetObject(""));
    EXPECT_EQ(document.ToText(), R"({"a":{"b":1},"root":{"a":{"b":1}}})");
    document.Insert("root", document.GetObject("root/a"));
    EXPECT_EQ(document.ToText(), R"({"a":{"b":1},"root":{"b":1}})");
    document.Insert("a", document);
    EXPECT_EQ(document.ToText(), R"({"a":{"a":{"b":1},"root":{"b":1}},"root":{"b":1}})");

    JsonObject null(nullptr);
    null.Insert("k", null.GetObject(""));
    EXPECT_EQ(null.ToText(), R"({"k":null})");
}

TEST(Insert, ThroughAViewChangesTheDocument)
{
    JsonObject document(R"({"a":{}})");
    JsonObject view = document.GetObject("a");
    view.Insert("k", JsonObject("1"));
    view.Insert("w", L"x");
    EXPECT_EQ(document.ToText(), R"({"a":{"k":1,"w":"x"}})");
}

TEST(Insert, StoresWideTextAsUtf8)
{
    const struct
    {
        std::wstring wide;
        std::string text;
    } rows[] = {
        {L"", "\"\""},
        {L"plain", "\"plain\""},
        {std::wstring(1, wchar_t{0xE9}), "\"\xC3\xA9\""},
        {std::wstring(1, wchar_t{0x20AC}), "\"\xE2\x82\xAC\""},
        {std::wstring(1, wchar_t{0x1F600}), "\"\xF0\x9F\x98\x80\""},
        {std::wstring(1, wchar_t{0xFEFF}), "\"\xEF\xBB\xBF\""},
        {std::wstring(L"a\0b", 3), "\"a\\u0000b\""},
    };
    for (const auto& row : rows) {
        JsonObject document(R"({"k":1})");
        EXPECT_TRUE(document.Insert("k", row.wide));
        EXPECT_EQ(document.ToText(), "{\"k\":" + row.text + "}");
    }
}

TEST(Insert, OfWideTextThatIsNotUnicodeLeavesTheDocumentUnchanged)
{
    for (const wchar_t unit : {kBeyondUnicode, kSurrogate}) {
        JsonObject document(nullptr);
        EXPECT_EQ(RangeErrorOf([&] { document.Insert("k", std::wstring(1, unit)); }),
                  "wstring_convert: to_bytes error");
        EXPECT_FALSE(document.IsValid());
    }
}

TEST(Insert, CopiesComments)
{
    JsonObject item("// of the item\n{\"b\":1 /* of the member */}");
    JsonObject document("{}");
    document.Insert("a", item);
    EXPECT_EQ(document.ToStyledText(),
              "{\n"
              "   // of the item\n"
              "   \"a\" : {\n"
              "      \"b\" : 1 /* of the member */\n"
              "   }\n"
              "}");
}

TEST(Insert, PropagatesTheLibrarysErrorForOtherValues)
{
    for (const char* text : {"[1]", "5", "\"t\"", "true"}) {
        JsonObject object(text);
        EXPECT_THROW(object.Insert("k", JsonObject("1")), Json::LogicError) << text;
        EXPECT_THROW(object.Insert("k", L"x"), Json::LogicError) << text;
        EXPECT_EQ(object.ToText(), text);
    }
}

// Arrays

TEST(InsertArrayItem, AppendsAndTurnsNullIntoAnArray)
{
    JsonObject document(nullptr);
    EXPECT_TRUE(document.InsertArrayItem("x"));
    EXPECT_EQ(document.ToText(), R"(["x"])");
    EXPECT_EQ(document.GetArraySize(), 1u);
    JsonObject item(R"({"a":1})");
    EXPECT_TRUE(document.InsertArrayItem(item));
    EXPECT_EQ(document.ToText(), R"(["x",{"a":1}])");

    JsonObject other(nullptr);
    EXPECT_TRUE(other.InsertArrayItem(item));
    EXPECT_EQ(other.ToText(), R"([{"a":1}])");
}

TEST(InsertArrayItem, KeepsNulsAndTheArgument)
{
    JsonObject document("[]");
    std::string text("a\0b", 3);
    document.InsertArrayItem(text);
    EXPECT_EQ(document.ToText(), "[\"a\\u0000b\"]");
    EXPECT_EQ(text, std::string("a\0b", 3));
}

TEST(InsertArrayItem, CopiesDeeply)
{
    JsonObject document(R"({"list":[1]})");
    JsonObject list = document.GetObject("list");
    JsonObject source("[2]");
    JsonObject view = source.GetObject("");
    list.InsertArrayItem(view);
    list.InsertArrayItem(source);
    list.InsertArrayItem(list);
    source[0] = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"list":[1,[2],[2],[1,[2],[2]]]})");
    EXPECT_EQ(source.ToText(), R"(["x"])");
}

// Deliberate: a temporary does not bind to the parameter's reference. The product's components pass
// temporaries and rely on getting their text.
TEST(InsertArrayItem, ConvertsATemporaryToItsText)
{
    JsonObject document("[]");
    document.InsertArrayItem(JsonObject("5"));
    EXPECT_EQ(document.ToText(), R"(["5"])");
}

TEST(InsertArrayItem, AppendsAfterElementsCreatedByIndexing)
{
    JsonObject document(nullptr);
    document[1];
    document.InsertArrayItem("x");
    EXPECT_EQ(document.ToText(), R"([null,null,"x"])");
}

TEST(InsertArrayItem, PropagatesTheLibrarysErrorForOtherValues)
{
    for (const char* text : {"{}", "5", "\"t\"", "true"}) {
        JsonObject object(text);
        JsonObject item("1");
        EXPECT_THROW(object.InsertArrayItem("x"), Json::LogicError) << text;
        EXPECT_THROW(object.InsertArrayItem(item), Json::LogicError) << text;
        EXPECT_EQ(object.ToText(), text);
    }
}

TEST(RemoveArrayItem, RemovesOneElementAndMovesTheRestDown)
{
    const struct
    {
        const char* array;
        unsigned long index;
        bool removed;
        const char* rest;
    } rows[] = {
        {R"(["a","b"])", 0, true, R"(["b"])"},
        {"[1,2,3]", 1, true, "[1,3]"},
        {"[1,2,3]", 2, true, "[1,2]"},
        {"[1]", 0, true, "[]"},
        {"[1,2,3]", 3, false, "[1,2,3]"},
        {"[1,2,3]", 5, false, "[1,2,3]"},
        {"[]", 0, false, "[]"},
        {"[1,2]", 0x100000000, true, "[2]"},
        {"[1,2]", 0x100000005, false, "[1,2]"},
        {R"({"0":1})", 0, false, R"({"0":1})"},
        {"null", 0, false, "null"},
        {"5", 0, false, "5"},
        {"\"t\"", 0, false, "\"t\""},
    };
    for (const auto& row : rows) {
        JsonObject object(row.array);
        EXPECT_EQ(object.RemoveArrayItem(row.index), row.removed) << row.array << row.index;
        EXPECT_EQ(object.ToText(), row.rest) << row.array << row.index;
    }
}

TEST(RemoveArrayItem, ThroughAViewChangesTheDocument)
{
    JsonObject document(R"({"a":[1,2]})");
    EXPECT_TRUE(document.GetObject("a").RemoveArrayItem(0));
    EXPECT_EQ(document.ToText(), R"({"a":[2]})");
}

// Members

TEST(Remove, RemovesOneMember)
{
    const struct
    {
        const char* object;
        const char* key;
        bool removed;
        const char* rest;
    } rows[] = {
        {R"({"a":1,"b":2})", "a", true, R"({"b":2})"},
        {R"({"a":1})", "a", true, "{}"},
        {R"({"a":1})", "absent", false, R"({"a":1})"},
        {R"({"a":{"b":1}})", "a/b", false, R"({"a":{"b":1}})"},
        {R"({"":1})", "", true, "{}"},
        {"[1]", "0", false, "[1]"},
        {"null", "a", false, "null"},
        {"5", "a", false, "5"},
        {"\"t\"", "a", false, "\"t\""},
    };
    for (const auto& row : rows) {
        JsonObject object(row.object);
        EXPECT_EQ(object.Remove(row.key), row.removed) << row.object << row.key;
        EXPECT_EQ(object.ToText(), row.rest) << row.object << row.key;
    }
}

TEST(Remove, ThroughAViewChangesTheDocument)
{
    JsonObject document(R"({"a":{"b":1}})");
    EXPECT_TRUE(document.GetObject("a").Remove("b"));
    EXPECT_EQ(document.ToText(), R"({"a":{}})");
}

TEST(GetKeys, ReturnsTheNamesInAscendingOrderOfTheirBytes)
{
    using Keys = std::vector<std::string>;
    EXPECT_EQ(JsonObject(R"({"b":1,"a":2})").GetKeys(), (Keys{"a", "b"}));
    EXPECT_EQ(
        JsonObject("{\"\xC3\xA9\":1,\"z\":2,\"\xFF\":3,\"a\\u0000b\":4,\"a\":5,\"Z\":6}").GetKeys(),
        (Keys{"Z", "a", std::string("a\0b", 3), "z", "\xC3\xA9", "\xFF"}));
    EXPECT_EQ(JsonObject("{}").GetKeys(), Keys{});
    EXPECT_EQ(JsonObject(nullptr).GetKeys(), Keys{});
}

TEST(GetKeys, PropagatesTheLibrarysErrorForOtherValues)
{
    for (const char* text : {"[]", "5", "\"t\"", "true"}) {
        EXPECT_THROW(JsonObject(text).GetKeys(), Json::LogicError) << text;
    }
}

// Deliberate, despite the name; the header says why.
TEST(Copy, IsAViewOfTheSameValue)
{
    JsonObject document(R"({"a":1})");
    JsonObject copy = document.Copy();
    copy["a"] = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"a":"x"})");

    JsonObject of_view = document.GetObject("a").Copy();
    of_view = std::string("y");
    EXPECT_EQ(document.ToText(), R"({"a":"y"})");
}

TEST(Copy, BecomesIndependentInAnOwningObject)
{
    JsonObject document(R"({"a":1})");
    JsonObject own(nullptr);
    own = document.Copy();
    own["a"] = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"a":1})");
}

// Wide text

TEST(WideText, IsTheTextUpToItsFirstNul)
{
    EXPECT_EQ(Wide(JsonObject("\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\"")),
              (std::wstring{wchar_t{0xE9}, wchar_t{0x20AC}, wchar_t{0x1F600}}));
    EXPECT_EQ(Wide(JsonObject("\"a\\u0000b\"")), L"a");
    EXPECT_EQ(Wide(JsonObject("\"a\\u0000\xFF\"")), L"a");
    EXPECT_EQ(Wide(JsonObject("\"\xEF\xBB\xBF\"")), std::wstring(1, wchar_t{0xFEFF}));
    EXPECT_EQ(Wide(JsonObject("null")), L"");
    EXPECT_EQ(Wide(JsonObject("-5")), L"-5");
    EXPECT_EQ(Wide(JsonObject("true")), L"true");
}

TEST(WideText, IsReadBackAsInserted)
{
    const std::wstring text{L'a', wchar_t{0xE9}, wchar_t{0xFEFF}, wchar_t{0xFFFF},
                            wchar_t{0x10FFFF}};
    JsonObject document("{}");
    document.Insert("k", text);
    EXPECT_EQ(Wide(document.GetObject("k")), text);
}

TEST(WideText, ThrowsForTextThatIsNotUtf8)
{
    for (const char* json : {"\"\xC3\"", "\"\xFF\"", "\"\xED\xA0\x80\"", "\"\xC0\x80\"", "\"\x80\"",
                             "\"\xF4\x90\x80\x80\""}) {
        JsonObject value(json);
        EXPECT_EQ(RangeErrorOf([&] { Wide(value); }), "wstring_convert: from_bytes error") << json;
    }
}

TEST(WideText, PropagatesTheLibrarysErrorForValuesWithoutText)
{
    EXPECT_THROW(Wide(JsonObject("[]")), Json::LogicError);
    EXPECT_THROW(Wide(JsonObject("{}")), Json::LogicError);
}

// Writing

TEST(ToText, IsOneTrimmedLine)
{
    EXPECT_EQ(JsonObject("{ \"a\" : [ 1, 2 ] }").ToText(), R"({"a":[1,2]})");
    EXPECT_EQ(JsonObject(nullptr).ToText(), "null");
    EXPECT_EQ(JsonObject("\" a \"").ToText(), "\" a \"");
}

TEST(ToText, OmitsComments)
{
    EXPECT_EQ(JsonObject("// \"before\"\n[1, // \"same line\"\n2]\n// \"after\"\n").ToText(),
              "[1,2]");
}

TEST(ToText, WritesThroughAView)
{
    JsonObject document(R"({"a":{"b":"c"}})");
    EXPECT_EQ(document.GetObject("a").ToText(), R"({"b":"c"})");
    EXPECT_EQ(document.GetObject("a").ToStyledText(), "{\n   \"b\" : \"c\"\n}");
}

TEST(ToText, DoesNotChangeTheDocument)
{
    Json::Value value(Json::objectValue);
    value["\xC3\xA9"].append("\xFF");
    value["c"].setComment(std::string("// \"c\""), Json::commentBefore);
    const Json::Value before = value;
    JsonObject view(value);
    view.ToText();
    view.ToStyledText();
    EXPECT_EQ(value, before);
    EXPECT_EQ(value["c"].getComment(Json::commentBefore), "// \"c\"");
}

TEST(ToStyledText, IsIndentedAndTrimmed)
{
    EXPECT_EQ(JsonObject(R"({"a":[1,2],"b":{"c":[]},"d":[{}],"e":[[1]]})").ToStyledText(),
              "{\n"
              "   \"a\" : [ 1, 2 ],\n"
              "   \"b\" : {\n"
              "      \"c\" : []\n"
              "   },\n"
              "   \"d\" : [ {} ],\n"
              "   \"e\" : [\n"
              "      [ 1 ]\n"
              "   ]\n"
              "}");
    EXPECT_EQ(JsonObject(nullptr).ToStyledText(), "null");
    EXPECT_EQ(JsonObject(R"("")").ToStyledText(), R"("")");
    EXPECT_EQ(JsonObject(R"({"":""})").ToStyledText(), "{\n   \"\" : \"\"\n}");
}

TEST(ToStyledText, KeepsTheCommentsOfTheDocument)
{
    EXPECT_EQ(JsonObject("// first\n// \"second\"\n"
                         "{\n"
                         "/* a \"quoted\" word */\n"
                         "\"a\" : 1, // same \"line\n"
                         "// before \"b\\u00e9\"\n"
                         "\"b\" : [ \"x\", /* \xC3\xA9 \xFF \\\" */ \"y\" ]\n"
                         "}\n"
                         "// after\n")
                  .ToStyledText(),
              "// first\n"
              "// \"second\"\n"
              "{\n"
              "   /* a \"quoted\" word */\n"
              "   \"a\" : 1, // same \"line\n"
              "   // before \"b\\u00e9\"\n"
              "   \"b\" : [\n"
              "      \"x\", /* \xC3\xA9 \xFF \\\" */\n"
              "      \"y\"\n"
              "   ]\n"
              "}\n"
              "// after");
}

// Strings and member names are written as stored, whatever the library's writers do with them.

TEST(StoredBytes, AreWrittenUnchangedWhetherUtf8OrNot)
{
    for (const std::string bytes :
         {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "\xFF", "\xC3", "\x80", "\xED\xA0\x80",
          "\xC0\x80", "\xF5\x80\x80\x80", "a\xC3", "\xEF\xBF\xBD", "\x7F", "/", "'", "</script>"}) {
        const auto with_bytes = [&](std::string text) {
            replace_all(text, "@", bytes);
            return text;
        };
        JsonObject object(with_bytes(R"({"@":"@"})").c_str());
        EXPECT_EQ(object.ToText(), with_bytes(R"({"@":"@"})"));
        EXPECT_EQ(object.ToStyledText(), with_bytes("{\n   \"@\" : \"@\"\n}"));
        JsonObject array(with_bytes(R"(["@",1])").c_str());
        EXPECT_EQ(array.ToText(), with_bytes(R"(["@",1])"));
        EXPECT_EQ(array.ToStyledText(), with_bytes(R"([ "@", 1 ])"));
    }
}

TEST(StoredBytes, OfEveryValueAreWrittenUnchangedOrEscaped)
{
    for (int byte = 1; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        JsonObject object(nullptr);
        object = text;
        const std::string written = object.ToText();
        EXPECT_EQ(object.ToStyledText(), written);
        if (byte >= 0x20 && byte != '"' && byte != '\\') {
            EXPECT_EQ(written, "\"" + text + "\"");
        } else {
            EXPECT_EQ(written[1], '\\');
        }
        const std::string read_again = JsonObject(written.c_str());
        EXPECT_EQ(read_again, text);
    }
}

TEST(StoredBytes, AreEscapedWhereJsonRequiresIt)
{
    const std::string stored("\b\f\n\r\t\"\\\x01\x1F\0", 10);
    const std::string written = R"("\b\f\n\r\t\"\\\u0001\u001f\u0000")";
    JsonObject object(nullptr);
    object = stored;
    EXPECT_EQ(object.ToText(), written);
    EXPECT_EQ(object.ToStyledText(), written);
}

TEST(StoredBytes, ThatLookLikeAnEscapeRemainText)
{
    const std::string json = R"({"\\u00e9":"\\u00e9","k":"\\\\ufffd","l":"\\\"","m":"\\"})";
    JsonObject object(json.c_str());
    const std::string text = object["\\u00e9"];
    EXPECT_EQ(text, "\\u00e9");
    EXPECT_EQ(object.ToText(), json);
    EXPECT_EQ(object.ToStyledText(),
              "{\n"
              "   \"\\\\u00e9\" : \"\\\\u00e9\",\n"
              "   \"k\" : \"\\\\\\\\ufffd\",\n"
              "   \"l\" : \"\\\\\\\"\",\n"
              "   \"m\" : \"\\\\\"\n"
              "}");
}

TEST(StoredBytes, OfANameWithANulAreWrittenWhole)
{
    JsonObject object(R"({"a\u0000x":1,"a\u0000y":2})");
    EXPECT_EQ(object.ToText(), R"({"a\u0000x":1,"a\u0000y":2})");
    EXPECT_EQ(object.ToStyledText(), "{\n   \"a\\u0000x\" : 1,\n   \"a\\u0000y\" : 2\n}");
}

TEST(StoredBytes, OfNamesKeepTheirOrder)
{
    const std::string json =
        "{\"\":0,\"A\":1,\"a\":2,\"a\x7F\":3,\"a\xC2\x80\":4,\"b\":5,\"\xC3\xA9\":6,\"\xE2\":7,"
        "\"\xFF\":8}";
    EXPECT_EQ(JsonObject(json.c_str()).ToText(), json);

    JsonObject many("{}");
    std::string expected;
    for (int i = 100; i < 1300; ++i) {
        const std::string name = "\xC3\xA9" + std::to_string(i * 7);
        many.Insert(name.c_str(), JsonObject(std::to_string(i).c_str()));
    }
    for (const std::string& name : many.GetKeys()) {
        const std::string number = many[name.c_str()];
        expected += expected.empty() ? "{\"" : ",\"";
        expected.append(name).append("\":").append(number);
    }
    EXPECT_EQ(many.ToText(), expected + "}");
}

// An array is written on one line if that has fewer than 74 bytes with "[ ", ", " and " ]".
TEST(StoredBytes, DecideWhetherAnArrayFitsOnOneLine)
{
    const struct
    {
        const char* unit;   // as stored
        std::size_t width;  // as written
    } rows[] = {{"a", 1}, {"\xC3\xA9", 2}, {"\xFF", 1}, {"\n", 2}, {"\x01", 6}, {"\\", 2}};
    for (const auto& row : rows) {
        std::string stored;
        for (std::size_t width = row.width; width <= 69; width += row.width) {
            stored += row.unit;
            for (std::size_t rest = 0; rest < 3; ++rest) {
                JsonObject array("[]");
                array.InsertArrayItem(stored + std::string(rest, 'b'));
                const bool one_line = 4 + 2 + width + rest < 74;
                const std::string styled = array.ToStyledText();
                EXPECT_EQ(styled.compare(0, 3, "[ \"") == 0, one_line) << styled;
                EXPECT_EQ(styled.compare(0, 3, "[\n ") == 0, !one_line) << styled;
            }
        }
    }
}

// The layout must be that of the library's writers.

namespace {

#pragma GCC diagnostic push
// Deprecated in some versions of jsoncpp; these tests compare with their output.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

struct Written
{
    std::string text;
    std::string styled;
};

// The output of the library's writers for `value`, trimmed.
Written WrittenByTheLibrary(const Json::Value& value)
{
    Written written{Json::FastWriter().write(value), Json::StyledWriter().write(value)};
    trim(written.text);
    trim(written.styled);
    return written;
}

Json::Value Parsed(const std::string& json)
{
    Json::Reader reader;
    Json::Value value;
    EXPECT_TRUE(reader.parse(json, value, true)) << json;
    return value;
}

#pragma GCC diagnostic pop

// Random ASCII JSON text with comments in every place. Uses the generator's numbers directly,
// because the standard distributions differ between libraries.
class RandomJson
{
public:
    explicit RandomJson(unsigned int seed) : m_random(seed) {}

    std::string Document() { return Comments() + Value(4) + Comments(); }

private:
    unsigned int Below(unsigned int end) { return static_cast<unsigned int>(m_random() % end); }

    std::string Value(unsigned int depth)
    {
        switch (Below(depth == 0 ? 5 : 9)) {
            case 0: {
                const char* const constants[] = {"null", "true", "false"};
                return constants[Below(3)];
            }
            case 1: {
                const char* const numbers[] = {"0",
                                               "-1",
                                               "1.5",
                                               "-0.0",
                                               "1e300",
                                               "1.0",
                                               "0.1",
                                               "-9223372036854775808",
                                               "18446744073709551615",
                                               "18446744073709551616",
                                               "123456789.123456789"};
                return numbers[Below(11)];
            }
            case 2:
                return std::to_string(m_random());
            case 3:
            case 4:
                return String(Below(4) == 0 ? 40 : 6);
            case 5:
            case 6:
                return Many('[', ']', [&] { return Value(Below(depth)); });
            default:
                return Many('{', '}', [&] {
                    return String(6, 1) + ":" + MaybeComments() + Value(Below(depth));
                });
        }
    }

    template <typename Entry>
    std::string Many(char open, char close, Entry entry)
    {
        std::string text(1, open);
        const unsigned int count = Below(3) == 0 ? Below(30) : Below(5);
        for (unsigned int i = 0; i < count; ++i) {
            text += (i == 0 ? "" : ",") + MaybeComments() + entry() + MaybeComments();
        }
        return text + close;
    }

    // Names must not contain a NUL, because StyledWriter truncates them there.
    std::string String(unsigned int length, unsigned int lowest = 0)
    {
        std::string text = "\"";
        for (unsigned int left = Below(length); left > 0; --left) {
            const unsigned int c = Below(6) == 0 ? lowest + Below(0x80 - lowest) : ' ' + Below(95);
            if (c < 0x20) {
                const char* const digits = "0123456789abcdef";
                text += std::string("\\u00") + digits[c / 16] + digits[c % 16];
            } else {
                text += c == '"' || c == '\\' ? "\\" : "";
                text += static_cast<char>(c);
            }
        }
        return text + '"';
    }

    std::string MaybeComments() { return Below(8) == 0 ? Comments() : ""; }

    std::string Comments()
    {
        const char* const comments[] = {
            "",
            " ",
            "\n",
            "// c\n",
            "// c \n",
            "// \"c\" : \"\\\"\\u00e9\\\n",
            "// one \"\r\n// two\"\r",
            "/* c */",
            "/* \" */ /* \"\" */\n",
            "/* two\n lines\n// \"in\" one */",
            "\n/* x */ // \x7F \x01 \"\"\"\n",
            "\n//\"\n//\"\n",
        };
        return comments[Below(4) == 0 ? Below(12) : 0];
    }

    std::mt19937 m_random;
};

}  // namespace

TEST(Layout, IsTheLibrarysOnRandomAsciiDocuments)
{
    std::size_t with_comments = 0;
    for (unsigned int seed = 0; seed < 5000; ++seed) {
        const std::string json = RandomJson(seed).Document();
        const Written expected = WrittenByTheLibrary(Parsed(json));
        JsonObject document(json.c_str());
        ASSERT_EQ(document.ToText(), expected.text) << json;
        ASSERT_EQ(document.ToStyledText(), expected.styled) << json;
        with_comments += expected.styled.find("//") != std::string::npos ? 1 : 0;
    }
    EXPECT_GT(with_comments, 1000u);
}

// '~' is replaced with a byte that is not UTF-8. Both have the same width and are greater than all
// other printable characters, so the names keep their order.
TEST(Layout, DoesNotDependOnWhetherBytesAreAscii)
{
    const auto with_byte = [](std::string text) {
        for (char& c : text) {
            c = c == '~' ? '\xFE' : c;
        }
        return text;
    };
    std::size_t documents = 0;
    for (unsigned int seed = 5000; seed < 10000; ++seed) {
        std::string json = RandomJson(seed).Document();
        std::replace(json.begin(), json.end(), '\x7F', '~');
        if (json.find('~') == std::string::npos) {
            continue;
        }
        ++documents;
        const Written expected = WrittenByTheLibrary(Parsed(json));
        JsonObject document(with_byte(json).c_str());
        ASSERT_EQ(document.ToText(), with_byte(expected.text)) << json;
        ASSERT_EQ(document.ToStyledText(), with_byte(expected.styled)) << json;
    }
    EXPECT_GT(documents, 500u);
}

TEST(Layout, IsTheLibrarysForADeepDocument)
{
    std::string json = "\"a\"";
    // 200 levels, which every version of the reader accepts.
    for (int i = 0; i < 100; ++i) {
        json.insert(0, "{\"k\":[").append("]}");
    }
    const Written expected = WrittenByTheLibrary(Parsed(json));
    JsonObject document(json.c_str());
    EXPECT_EQ(document.ToText(), expected.text);
    EXPECT_EQ(document.ToStyledText(), expected.styled);
}

// Comments that a program can set and the reader never attaches.
TEST(Layout, IsTheLibrarysForCommentsSetByHand)
{
    const Json::CommentPlacement placements[] = {Json::commentBefore, Json::commentAfterOnSameLine,
                                                 Json::commentAfter};
    Json::Value value(Json::objectValue);
    value["a \"name\""][0] = "x";
    value["b"] = "y";
    for (const Json::CommentPlacement placement : placements) {
        // The library removes one trailing line feed; the other is part of the comment.
        const std::string comment = "// \"" + std::to_string(placement) + "\n\n";
        value.setComment(comment, placement);
        value["a \"name\""].setComment(comment, placement);
        value["a \"name\""][0].setComment(comment, placement);
        value["b"].setComment(comment, placement);
    }
    JsonObject view(value);
    const Written expected = WrittenByTheLibrary(value);
    EXPECT_EQ(view.ToText(), expected.text);
    EXPECT_EQ(view.ToStyledText(), expected.styled);
}

TEST(Layout, IsTheLibrarysForAnArrayWithHoles)
{
    Json::Value value(Json::arrayValue);
    value[5] = "x";
    JsonObject view(value);
    EXPECT_EQ(view.ToText(), R"([null,null,null,null,null,"x"])");
    EXPECT_EQ(view.ToStyledText(), R"([ null, null, null, null, null, "x" ])");
}
