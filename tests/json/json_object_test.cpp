#include "json/json_object.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

static_assert(sizeof(AERROR) == 4 && std::is_enum_v<AERROR>);

namespace {

// Components of the product are compiled against the layout of the class, in which only the
// destructor is virtual. A deleted function must not override another, so this does not compile if
// any of these functions is virtual.
static_assert(std::has_virtual_destructor_v<JsonObject>);
struct OverridesNothing : JsonObject
{
    using JsonObject::JsonObject;
    JsonObject& operator=(const JsonObject&) = delete;
    JsonObject& operator=(std::string) = delete;
    JsonObject GetObject(const char*) = delete;
    bool HasObject(const char*) = delete;
    JsonObject operator[](const char*) = delete;
    JsonObject operator[](int) = delete;
    unsigned int GetArraySize() = delete;
    bool IsValid() = delete;
    bool IsArray() = delete;
    operator std::string() = delete;
    operator unsigned long long() = delete;
    operator long long() = delete;
    operator long() = delete;
    operator double() = delete;
    operator bool() = delete;
    operator int() = delete;
    operator AERROR() = delete;
    operator std::wstring() = delete;
    bool Insert(const char*, const JsonObject&) = delete;
    bool Insert(const char*, const std::wstring&) = delete;
    bool InsertArrayItem(std::string) = delete;
    bool InsertArrayItem(JsonObject&) = delete;
    bool RemoveArrayItem(unsigned long) = delete;
    bool Remove(const char*) = delete;
    std::vector<std::string> GetKeys() = delete;
    JsonObject Copy() = delete;
    std::string ToText() = delete;
    std::string ToStyledText() = delete;
};

// No member function is const: a pointer of this type cannot point to a const function.
template <typename Result, typename... Arguments>
constexpr bool IsNotConst(Result (JsonObject::*)(Arguments...))
{
    return true;
}
static_assert(IsNotConst<JsonObject&, const JsonObject&>(&JsonObject::operator=));
static_assert(IsNotConst<JsonObject&, std::string>(&JsonObject::operator=));
static_assert(IsNotConst(&JsonObject::GetObject));
static_assert(IsNotConst(&JsonObject::HasObject));
static_assert(IsNotConst<JsonObject, const char*>(&JsonObject::operator[]));
static_assert(IsNotConst<JsonObject, int>(&JsonObject::operator[]));
static_assert(IsNotConst(&JsonObject::GetArraySize));
static_assert(IsNotConst(&JsonObject::IsValid));
static_assert(IsNotConst(&JsonObject::IsArray));
static_assert(IsNotConst(&JsonObject::operator std::string));
static_assert(IsNotConst(&JsonObject::operator unsigned long long));
static_assert(IsNotConst(&JsonObject::operator long long));
static_assert(IsNotConst(&JsonObject::operator long));
static_assert(IsNotConst(&JsonObject::operator double));
static_assert(IsNotConst(&JsonObject::operator bool));
static_assert(IsNotConst(&JsonObject::operator int));
static_assert(IsNotConst(&JsonObject::operator AERROR));
static_assert(IsNotConst(&JsonObject::operator std::wstring));
static_assert(IsNotConst<bool, const char*, const JsonObject&>(&JsonObject::Insert));
static_assert(IsNotConst<bool, const char*, const std::wstring&>(&JsonObject::Insert));
static_assert(IsNotConst<bool, std::string>(&JsonObject::InsertArrayItem));
static_assert(IsNotConst<bool, JsonObject&>(&JsonObject::InsertArrayItem));
static_assert(IsNotConst(&JsonObject::RemoveArrayItem));
static_assert(IsNotConst(&JsonObject::Remove));
static_assert(IsNotConst(&JsonObject::GetKeys));
static_assert(IsNotConst(&JsonObject::Copy));
static_assert(IsNotConst(&JsonObject::ToText));
static_assert(IsNotConst(&JsonObject::ToStyledText));

constexpr char kCommented[] = "// before\n{\"a\":1 /* same line */}\n// after";
constexpr char kStyledCommented[] = "// before\n{\n   \"a\" : 1 /* same line */\n}\n// after";

// The AERROR that `act` throws, itself and not within another type; -1 if it throws none.
template <typename Act>
int ErrorOf(Act act)
{
    try {
        act();
    } catch (AERROR error) {
        return error;
    }
    return -1;
}

std::string Text(JsonObject object)
{
    return object.ToText();
}

// `json` converted to `Result` by copy initialisation.
template <typename Result>
Result Converted(const char* json)
{
    JsonObject value(json);
    Result result = value;
    return result;
}

template <typename Integer>
void ExpectAll64Bits()
{
    EXPECT_EQ(Converted<Integer>("9223372036854775807"), std::numeric_limits<Integer>::max());
    EXPECT_EQ(Converted<Integer>("-9223372036854775808"), std::numeric_limits<Integer>::min());
    EXPECT_EQ(Converted<Integer>("-7.9"), -7);
    EXPECT_EQ(Converted<Integer>("null"), 0);
    EXPECT_EQ(Converted<Integer>("true"), 1);
    EXPECT_THROW(Converted<Integer>("9223372036854775808"), Json::LogicError);
    EXPECT_THROW(Converted<Integer>("1e30"), Json::LogicError);
}

}  // namespace

// Construction

TEST(JsonObjectFromText, AcceptsAnyValueAsTheRoot)
{
    for (const std::string text :
         {"{}", "[]", "null", "true", "false", "5", "-1.5", "\"a\"", "{\"a\":[1,{\"b\":null}]}"}) {
        EXPECT_EQ(Text(JsonObject(text.c_str())), text);
        EXPECT_EQ(Text(JsonObject(text.data(), static_cast<unsigned int>(text.size()))), text);
    }
}

TEST(JsonObjectFromText, ThrowsTheBareCode6001ForRejectedText)
{
    for (const std::string text : {"", " ", "not json", "{", "[1", "[1,]", "{\"a\" 1}", "tru",
                                   "'a'", "\"open", "\"\\x\"", "\"\\ud800\"", "/* open", "}"}) {
        EXPECT_EQ(ErrorOf([&] { JsonObject object(text.c_str()); }), 6001) << text;
        const auto length = static_cast<unsigned int>(text.size());
        EXPECT_EQ(ErrorOf([&] { JsonObject object(text.data(), length); }), 6001) << text;
    }
}

TEST(JsonObjectFromText, IgnoresTextAfterTheFirstCompleteValue)
{
    EXPECT_EQ(Text(JsonObject("{}xyz")), "{}");
    EXPECT_EQ(Text(JsonObject("[1] [2]")), "[1]");
    EXPECT_EQ(Text(JsonObject("{}xyz", 5)), "{}");
}

TEST(JsonObjectFromText, EndsTheTextAtTheLength)
{
    EXPECT_EQ(Text(JsonObject("{}xyz", 2)), "{}");
    EXPECT_EQ(Text(JsonObject("1234", 2)), "12");
    EXPECT_EQ(Text(JsonObject("truest", 4)), "true");
    EXPECT_EQ(ErrorOf([] { JsonObject object("{}xyz", 1); }), 6001);
    EXPECT_EQ(ErrorOf([] { JsonObject object("{}", 0); }), 6001);
}

TEST(JsonObjectFromText, ReadsNothingPastTheLength)
{
    for (const std::string text :
         {"[1,2]", "12", "\"a\"", "true", "{\"a\":1} ", "// c\n1", "1//c"}) {
        // On the heap, where the sanitizers detect a read past the end.
        const std::unique_ptr<char[]> block(new char[text.size()]);
        std::memcpy(block.get(), text.data(), text.size());
        JsonObject object(block.get(), static_cast<unsigned int>(text.size()));
        EXPECT_EQ(Text(object), Text(JsonObject(text.c_str())));
    }
}

TEST(JsonObjectFromText, WithALengthContinuesAfterANul)
{
    EXPECT_EQ(Text(JsonObject("/*\0*/5", 6)), "5");
    EXPECT_EQ(ErrorOf([] { JsonObject object("[1\0]", 4); }), 6001);
}

TEST(JsonObjectFromText, WithoutALengthEndsAtTheNul)
{
    EXPECT_EQ(ErrorOf([] { JsonObject object("/*\0*/5"); }), 6001);
    EXPECT_EQ(Text(JsonObject("12\0"
                              "34")),
              "12");
}

TEST(JsonObjectFromText, KeepsCommentsOnlyWithoutALength)
{
    const std::string text = "// c\n5";
    JsonObject with(text.c_str());
    EXPECT_EQ(with.ToStyledText(), text);
    JsonObject without(text.data(), static_cast<unsigned int>(text.size()));
    EXPECT_EQ(without.ToStyledText(), "5");
}

TEST(JsonObjectFromText, NullTextGivesNullAndNoError)
{
    JsonObject object(nullptr);
    EXPECT_FALSE(object.IsValid());
    EXPECT_FALSE(object.IsArray());
    EXPECT_EQ(object.GetArraySize(), 0u);
}

TEST(JsonObjectFromText, PropagatesTheLibrarysErrorForDeepNesting)
{
    // Versions of jsoncpp have different limits, none of them below 200 or above 5,000.
    const std::string deep(200, '[');
    const std::string closing(200, ']');
    EXPECT_EQ(Text(JsonObject((deep + closing).c_str())), deep + closing);

    const std::string too_deep(5000, '[');
    EXPECT_THROW(JsonObject object(too_deep.c_str()), Json::RuntimeError);
    EXPECT_THROW(JsonObject object(too_deep.data(), 5000), Json::RuntimeError);
}

TEST(GetEmptyObject, GivesAnObjectWithoutMembers)
{
    JsonObject object = JsonObject::GetEmptyObject();
    EXPECT_TRUE(object.IsValid());
    EXPECT_FALSE(object.IsArray());
    EXPECT_EQ(object.GetArraySize(), 0u);
    EXPECT_EQ(object.ToText(), "{}");
}

TEST(GetEmptyObject, GivesAnOwningObjectEachTime)
{
    JsonObject first = JsonObject::GetEmptyObject();
    first["a"] = std::string("x");
    EXPECT_EQ(JsonObject::GetEmptyObject().ToText(), "{}");
    JsonObject copy(first);
    first["a"] = std::string("y");
    EXPECT_EQ(copy.ToText(), R"({"a":"x"})");
}

// Views and copies

TEST(JsonObjectView, WritesThroughToTheCallersValue)
{
    Json::Value value(5);
    JsonObject view(value);
    value = 6;
    EXPECT_EQ(Text(view), "6");
    view = std::string("x");
    EXPECT_EQ(value, Json::Value("x"));
}

TEST(JsonObjectCopy, OfAViewIsASecondViewOfTheSameValue)
{
    JsonObject document(R"({"a":5})");
    JsonObject view = document.GetObject("a");
    JsonObject copy(view);
    copy = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"a":"x"})");
    EXPECT_EQ(Text(view), "\"x\"");
}

TEST(JsonObjectCopy, OfAnOwnerOfDataHasItsComments)
{
    JsonObject document(kCommented);
    EXPECT_EQ(JsonObject(document).ToStyledText(), kStyledCommented);
}

TEST(JsonObjectCopy, OfAnOwnerOfDataIsDeep)
{
    auto document = std::make_unique<JsonObject>(R"({"a":5})");
    JsonObject copy(*document);
    (*document)["a"] = std::string("x");
    EXPECT_EQ(copy.ToText(), R"({"a":5})");
    document.reset();
    copy["b"] = std::string("y");
    EXPECT_EQ(copy.ToText(), R"({"a":5,"b":"y"})");
}

// Deliberate: the copy constructor checks whether the source owns data, not whether it is a view.
TEST(JsonObjectCopy, OfAnOwnerOfNullIsAViewOfTheSource)
{
    JsonObject source(nullptr);
    JsonObject copy(source);
    copy["a"] = std::string("x");
    EXPECT_EQ(source.ToText(), R"({"a":"x"})");
    source["a"] = std::string("y");
    EXPECT_EQ(copy.ToText(), R"({"a":"y"})");
}

TEST(JsonObjectCopy, OfAParsedNullIsAViewOfTheSource)
{
    JsonObject source("null");
    JsonObject copy(source);
    copy = std::string("x");
    EXPECT_EQ(source.ToText(), "\"x\"");
}

// Deliberate: the source's own value is null again once null has been assigned to it.
TEST(JsonObjectCopy, OfAnOwnerThatBecameNullIsAViewOfTheSource)
{
    JsonObject source("5");
    JsonObject null(nullptr);
    source = null;
    JsonObject copy(source);
    copy = std::string("x");
    EXPECT_EQ(source.ToText(), "\"x\"");
}

// Assignment: writes through if the source's own value is null, detaches otherwise.

TEST(JsonObjectAssign, AViewToAViewWritesIntoTheViewedDocument)
{
    JsonObject document(R"({"a":1,"b":[2]})");
    JsonObject target = document.GetObject("a");
    target = document.GetObject("b");
    EXPECT_EQ(document.ToText(), R"({"a":[2],"b":[2]})");
    target[0] = std::string("still a view, of a deep copy");
    EXPECT_EQ(document.ToText(), R"({"a":["still a view, of a deep copy"],"b":[2]})");
}

TEST(JsonObjectAssign, AnOwnerOfNullToAViewWritesNullIntoTheViewedDocument)
{
    JsonObject document(R"({"a":1})");
    JsonObject target = document.GetObject("a");
    JsonObject null(nullptr);
    target = null;
    EXPECT_EQ(document.ToText(), R"({"a":null})");
    target = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"a":"x"})");
    EXPECT_EQ(null.ToText(), "null");
}

TEST(JsonObjectAssign, AnOwnerOfDataToAViewDetachesIt)
{
    JsonObject document(R"({"a":1})");
    JsonObject target = document.GetObject("a");
    JsonObject source("[2]");
    target = source;
    EXPECT_EQ(document.ToText(), R"({"a":1})");
    target[0] = std::string("x");
    EXPECT_EQ(target.ToText(), R"(["x"])");
    EXPECT_EQ(document.ToText(), R"({"a":1})");
    EXPECT_EQ(source.ToText(), "[2]");
}

TEST(JsonObjectAssign, AViewCopiesTheCommentsOfTheViewedValue)
{
    JsonObject document(kCommented);
    JsonObject view = document.Copy();
    JsonObject target(nullptr);
    target = view;
    EXPECT_EQ(target.ToStyledText(), kStyledCommented);
}

TEST(JsonObjectAssign, AnOwnerOfDataCopiesItsComments)
{
    JsonObject document(kCommented);
    JsonObject target("[1]");
    target = document;
    EXPECT_EQ(target.ToStyledText(), kStyledCommented);
}

TEST(JsonObjectAssign, AViewToAnOwnerCopiesTheViewedValue)
{
    JsonObject target(nullptr);
    auto document = std::make_unique<JsonObject>(R"({"a":{"b":1}})");
    target = document->GetObject("a");
    target["b"] = std::string("x");
    EXPECT_EQ(document->ToText(), R"({"a":{"b":1}})");
    document.reset();
    EXPECT_EQ(target.ToText(), R"({"b":"x"})");
    // The target now owns data, so a copy of it is deep.
    JsonObject copy(target);
    target["b"] = std::string("y");
    EXPECT_EQ(copy.ToText(), R"({"b":"x"})");
}

TEST(JsonObjectAssign, AnOwnerOfNullToAnOwnerGivesItItsOwnNull)
{
    JsonObject target("[1]");
    JsonObject null(nullptr);
    target = null;
    EXPECT_EQ(target.ToText(), "null");
    null = std::string("x");
    EXPECT_EQ(target.ToText(), "null");
}

TEST(JsonObjectAssign, AnOwnerOfDataToAnOwnerIsDeep)
{
    JsonObject target("[1]");
    JsonObject source("[2]");
    target = source;
    source[0] = std::string("x");
    EXPECT_EQ(target.ToText(), "[2]");
}

TEST(JsonObjectAssign, AcceptsAPartOfItsOwnDocument)
{
    JsonObject document(R"({"a":{"b":1}})");
    document = document.GetObject("a");
    EXPECT_EQ(document.ToText(), R"({"b":1})");
    document.GetObject("b") = document.GetObject("");
    EXPECT_EQ(document.ToText(), R"({"b":{"b":1}})");
}

TEST(JsonObjectAssign, ReturnsItself)
{
    JsonObject object("[1]");
    JsonObject other("[2]");
    EXPECT_EQ(&(object = other), &object);
    EXPECT_EQ(&(object = std::string("x")), &object);
    JsonObject& itself = object;
    EXPECT_EQ(&(object = itself), &object);
    EXPECT_EQ(object.ToText(), "\"x\"");
}

TEST(JsonObjectAssign, AStringReplacesTheValue)
{
    JsonObject document(R"({"a":{"b":1}})");
    document.GetObject("a") = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"a":"x"})");
    document = std::string("y");
    EXPECT_EQ(document.ToText(), "\"y\"");
}

TEST(JsonObjectAssign, AStringKeepsItsNuls)
{
    JsonObject object(nullptr);
    object = std::string("a\0b", 3);
    EXPECT_EQ(object.ToText(), "\"a\\u0000b\"");
}

// Lookup

TEST(GetObject, FindsMembersAndSkipsEmptyNames)
{
    JsonObject document(R"({"0":{"name":"n"},"a":{"b":5,"c.d":6,"\u00e9":7},"n":null,"":8})");
    const struct
    {
        const char* path;
        const char* text;
    } rows[] = {
        {"a/b", "5"},        {"/a//b/", "5"}, {"a/c.d", "6"}, {"a/\xC3\xA9", "7"},
        {"0/name", "\"n\""}, {"n", "null"},   {"n/", "null"},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(document.HasObject(row.path)) << row.path;
        EXPECT_EQ(document.GetObject(row.path).ToText(), row.text) << row.path;
    }
}

TEST(GetObject, APathWithoutNamesIsTheValueItself)
{
    for (const char* path : {"", "/", "///"}) {
        JsonObject document(R"({"":8})");
        EXPECT_TRUE(document.HasObject(path)) << path;
        document.GetObject(path) = std::string("x");
        EXPECT_EQ(document.ToText(), "\"x\"") << path;
        EXPECT_TRUE(JsonObject(nullptr).HasObject(path)) << path;
        EXPECT_TRUE(JsonObject("5").HasObject(path)) << path;
    }
}

TEST(GetObject, ThrowsTheBareCode4ForAMissingNameAndChangesNothing)
{
    const std::string text = R"({"a":{"b":5},"n":null})";
    JsonObject document(text.c_str());
    for (const char* path : {"b", "a/c", "a/c/d", "A", "a ", " a", "a\\b", "n/x", "0"}) {
        EXPECT_FALSE(document.HasObject(path)) << path;
        EXPECT_EQ(ErrorOf([&] { document.GetObject(path); }), 4) << path;
        EXPECT_EQ(document.ToText(), text) << path;
    }
    EXPECT_EQ(ErrorOf([] { JsonObject(nullptr).GetObject("a"); }), 4);
    EXPECT_FALSE(JsonObject(nullptr).HasObject("a"));
}

TEST(GetObject, AcceptsNoIndicesAndPropagatesTheLibrarysErrorForOtherValues)
{
    JsonObject document(R"({"array":[10],"number":5,"text":"t","true":true})");
    for (const char* path : {"array/0", "number/a", "text/a", "true/a"}) {
        EXPECT_THROW(document.GetObject(path), Json::LogicError) << path;
        EXPECT_THROW(document.HasObject(path), Json::LogicError) << path;
    }
}

TEST(GetObject, ReturnsAViewThatWritesThrough)
{
    JsonObject document(R"({"a":5})");
    document.GetObject("a") = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"a":"x"})");
}

TEST(GetObject, ActsOnTheValueOfAView)
{
    JsonObject document(R"({"a":{"b":{"c":1}}})");
    JsonObject view = document.GetObject("a");
    EXPECT_TRUE(view.HasObject("b/c"));
    EXPECT_FALSE(view.HasObject("a"));
    view.GetObject("b/c") = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"a":{"b":{"c":"x"}}})");
}

TEST(GetObject, FollowsALongPath)
{
    const std::string slashes(10000, '/');
    JsonObject document(R"({"a":{"b":5}})");
    EXPECT_EQ(Text(document.GetObject((slashes + "a" + slashes + "b" + slashes).c_str())), "5");
}

// Indexing

TEST(JsonObjectMember, IsAViewThatWritesThrough)
{
    JsonObject document(R"({"a":{"b":1}})");
    document["a"]["b"] = std::string("x");
    EXPECT_EQ(document.ToText(), R"({"a":{"b":"x"}})");
}

TEST(JsonObjectMember, IsCreatedAsNullByALookup)
{
    JsonObject item(R"({"name":"n"})");
    const std::string program = item["program"];
    EXPECT_EQ(program, "");
    EXPECT_FALSE(item["program"].IsValid());
    EXPECT_EQ(item.ToText(), R"({"name":"n","program":null})");
    EXPECT_TRUE(item.HasObject("program"));
}

TEST(JsonObjectMember, IsNotSplitAtSlashes)
{
    JsonObject document("{}");
    document["a/b"];
    EXPECT_EQ(document.ToText(), R"({"a/b":null})");
}

TEST(JsonObjectMember, TurnsNullIntoAnObject)
{
    JsonObject document(R"({"a":null})");
    document["a"]["b"];
    EXPECT_EQ(document.ToText(), R"({"a":{"b":null}})");
}

TEST(JsonObjectElement, IsAViewThatWritesThrough)
{
    JsonObject document("[[1],2]");
    document[0][0] = std::string("x");
    EXPECT_EQ(document.ToText(), R"([["x"],2])");
}

TEST(JsonObjectElement, ExtendsTheArrayByALookup)
{
    JsonObject document("[1]");
    document[3];
    EXPECT_EQ(document.GetArraySize(), 4u);
    EXPECT_EQ(document.ToText(), "[1,null,null,null]");
}

TEST(JsonObjectElement, TurnsNullIntoAnArray)
{
    JsonObject document(nullptr);
    document[1];
    EXPECT_EQ(document.ToText(), "[null,null]");
}

TEST(JsonObjectIndex, PropagatesTheLibrarysErrors)
{
    for (const char* text : {"[1]", "5", "-1.5", "\"t\"", "true"}) {
        JsonObject object(text);
        EXPECT_THROW(object["a"], Json::LogicError) << text;
    }
    for (const char* text : {"{}", "5", "-1.5", "\"t\"", "true"}) {
        JsonObject object(text);
        EXPECT_THROW(object[0], Json::LogicError) << text;
    }
    JsonObject array("[1]");
    EXPECT_THROW(array[-1], Json::LogicError);
}

// Queries

TEST(JsonObjectQueries, AcceptEveryType)
{
    const struct
    {
        const char* text;
        unsigned int size;
        bool valid;
        bool array;
    } rows[] = {
        {"null", 0, false, false},    {"[]", 0, true, true},
        {"[1,null]", 2, true, true},  {"{}", 0, true, false},
        {"5", 0, true, false},        {R"({"a":1,"b":2,"c":[]})", 3, true, false},
        {"0", 0, true, false},        {"1.5", 0, true, false},
        {"\"text\"", 0, true, false}, {"\"\"", 0, true, false},
        {"false", 0, true, false},
    };
    for (const auto& row : rows) {
        JsonObject object(row.text);
        EXPECT_EQ(object.GetArraySize(), row.size) << row.text;
        EXPECT_EQ(object.IsValid(), row.valid) << row.text;
        EXPECT_EQ(object.IsArray(), row.array) << row.text;
    }
}

// Conversions

TEST(JsonObjectConversion, GivesText)
{
    const struct
    {
        const char* json;
        std::string text;
    } rows[] = {
        {"null", ""},
        {"true", "true"},
        {"false", "false"},
        {"-7", "-7"},
        {"18446744073709551615", "18446744073709551615"},
        {"1.5", "1.5"},
        {"\"a b\"", "a b"},
        {"\"\"", ""},
        {"\"\\u00e9\"", "\xC3\xA9"},
        {"\"\xFF\"", "\xFF"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Converted<std::string>(row.json), row.text) << row.json;
    }
}

TEST(JsonObjectConversion, TruncatesTextAtItsFirstNul)
{
    EXPECT_EQ(Converted<std::string>("\"a\\u0000b\""), "a");
    EXPECT_EQ(Converted<std::string>("\"\\u0000b\""), "");
}

TEST(JsonObjectConversion, GivesUnsigned64BitNumbers)
{
    EXPECT_EQ(Converted<unsigned long long>("18446744073709551615"),
              std::numeric_limits<unsigned long long>::max());
    EXPECT_EQ(Converted<unsigned long long>("7"), 7u);
    EXPECT_EQ(Converted<unsigned long long>("7.9"), 7u);
    EXPECT_EQ(Converted<unsigned long long>("null"), 0u);
    EXPECT_EQ(Converted<unsigned long long>("true"), 1u);
    EXPECT_THROW(Converted<unsigned long long>("-1"), Json::LogicError);
    EXPECT_THROW(Converted<unsigned long long>("-1.5"), Json::LogicError);
}

TEST(JsonObjectConversion, GivesSigned64BitNumbers)
{
    ExpectAll64Bits<long long>();
    ExpectAll64Bits<long>();
}

// Deliberate: a value beyond 32 bits is truncated, not rejected; existing lists depend on that.
TEST(JsonObjectConversion, GivesTheLow32BitsAsInt)
{
    const struct
    {
        const char* json;
        int value;
    } rows[] = {
        {"5", 5},
        {"-1", -1},
        {"4294967301", 5},
        {"2147483648", std::numeric_limits<int>::min()},
        {"-4294967297", -1},
        {"9223372036854775807", -1},
        {"-9223372036854775808", 0},
        {"5.9", 5},
        {"4294967301.0", 5},
        {"null", 0},
        {"true", 1},
        {"false", 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Converted<int>(row.json), row.value) << row.json;
        EXPECT_EQ(static_cast<int>(Converted<AERROR>(row.json)), row.value) << row.json;
    }
    EXPECT_THROW(Converted<int>("9223372036854775808"), Json::LogicError);
    EXPECT_THROW(Converted<AERROR>("9223372036854775808"), Json::LogicError);
}

TEST(JsonObjectConversion, GivesNamedAndUnnamedErrorCodes)
{
    EXPECT_EQ(Converted<AERROR>("4"), AERROR_NOT_FOUND);
    EXPECT_EQ(Converted<AERROR>("6001"), AERROR_PARSE_FAILED);
    EXPECT_EQ(static_cast<int>(Converted<AERROR>("77")), 77);
}

TEST(JsonObjectConversion, GivesDoubles)
{
    EXPECT_EQ(Converted<double>("1.5"), 1.5);
    EXPECT_EQ(Converted<double>("-3"), -3.0);
    EXPECT_EQ(Converted<double>("18446744073709551615"), 18446744073709551616.0);
    EXPECT_EQ(Converted<double>("null"), 0.0);
    EXPECT_EQ(Converted<double>("true"), 1.0);
}

TEST(JsonObjectConversion, GivesBooleans)
{
    for (const char* json : {"true", "1", "-1", "0.5", "18446744073709551615"}) {
        EXPECT_TRUE(Converted<bool>(json)) << json;
    }
    for (const char* json : {"false", "null", "0", "0.0", "-0.0"}) {
        EXPECT_FALSE(Converted<bool>(json)) << json;
    }
}

TEST(JsonObjectConversion, PropagatesTheLibrarysErrorForImpossibleOnes)
{
    for (const char* json : {"{}", "[]", "{\"a\":1}", "[1]"}) {
        EXPECT_THROW(Converted<std::string>(json), Json::LogicError) << json;
    }
    for (const char* json : {"{}", "[]", "\"5\"", "\"\"", "\"true\""}) {
        EXPECT_THROW(Converted<unsigned long long>(json), Json::LogicError) << json;
        EXPECT_THROW(Converted<long long>(json), Json::LogicError) << json;
        EXPECT_THROW(Converted<long>(json), Json::LogicError) << json;
        EXPECT_THROW(Converted<int>(json), Json::LogicError) << json;
        EXPECT_THROW(Converted<AERROR>(json), Json::LogicError) << json;
        EXPECT_THROW(Converted<double>(json), Json::LogicError) << json;
        EXPECT_THROW(Converted<bool>(json), Json::LogicError) << json;
    }
}

TEST(JsonObjectConversion, ReadsThroughAView)
{
    JsonObject document(R"({"a":{"b":5}})");
    const int number = document.GetObject("a/b");
    EXPECT_EQ(number, 5);
    const std::string text = document["a"]["b"];
    EXPECT_EQ(text, "5");
}
