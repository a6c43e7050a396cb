// tests/schema/sarif_test.py validates the whole output.
#include "tools/launchlist/output/sarif_output.h"

#include <gtest/gtest.h>

#include "json/json_object.h"
#include "tools/launchlist/list/check.h"

using namespace launchlist;

namespace {

JsonObject RunOf(const std::vector<CheckedList>& lists)
{
    JsonObject log(FindingsSarif(lists, "1.2.3").c_str());
    EXPECT_EQ(static_cast<std::string>(log["version"]), "2.1.0");
    JsonObject run = JsonObject::GetEmptyObject();
    run = JsonObject(log["runs"][0].ToText().c_str());
    return run;
}

std::string TextOf(JsonObject value)
{
    return value;
}

// How the list at `path` is named.
std::string UriOf(const std::string& path)
{
    JsonObject run = RunOf({{path, "", CheckList("[]")}});
    return TextOf(run["results"][0]["locations"][0]["physicalLocation"]["artifactLocation"]["uri"]);
}

}  // namespace

TEST(FindingsSarif, HasTheKindsAsRules)
{
    JsonObject run = RunOf({});
    JsonObject driver = run["tool"]["driver"];
    EXPECT_EQ(TextOf(driver["semanticVersion"]), "1.2.3");
    ASSERT_EQ(driver["rules"].GetArraySize(), kKindCount);
    for (const KindInfo& info : AllKinds()) {
        JsonObject rule = driver["rules"][static_cast<int>(info.kind)];
        EXPECT_EQ(TextOf(rule["id"]), info.name);
        EXPECT_EQ(TextOf(rule["defaultConfiguration"]["level"]), NameOf(info.severity));
    }
}

TEST(FindingsSarif, HasThePlaceTheEffectAndTheFixOfAFinding)
{
    JsonObject run =
        RunOf({{"a", "", CheckList("{}")}, {"b", "", CheckList("{\n \"0\": {\"name\": \"\"}}")}});
    ASSERT_EQ(run["results"].GetArraySize(), 3U);
    JsonObject result = run["results"][2];
    EXPECT_EQ(TextOf(result["ruleId"]), "name-empty");
    EXPECT_EQ(static_cast<int>(result["ruleIndex"]), static_cast<int>(Kind::kNameEmpty));
    EXPECT_EQ(TextOf(result["level"]), "warning");
    EXPECT_EQ(
        TextOf(result["message"]["text"]),
        "\"name\" is empty\nEffect: the log shows the item without a name\nFix: write a name");
    JsonObject location = result["locations"][0];
    EXPECT_EQ(TextOf(location["logicalLocations"][0]["fullyQualifiedName"]), "/0/name");
    JsonObject place = location["physicalLocation"];
    EXPECT_EQ(TextOf(place["artifactLocation"]["uri"]), "b");
    EXPECT_EQ(static_cast<int>(place["region"]["startLine"]), 2);
    EXPECT_EQ(static_cast<int>(place["region"]["startColumn"]), 16);
    EXPECT_FALSE(run["results"][0]["locations"][0].HasObject("logicalLocations"));
}

TEST(FindingsSarif, NamesListsByUris)
{
    EXPECT_EQ(UriOf("-"), "-");
    EXPECT_EQ(UriOf("lists/a.json"), "lists/a.json");
    EXPECT_EQ(UriOf("/etc/a.json"), "file:///etc/a.json");
    EXPECT_EQ(UriOf("c:a b%?#\xC3\xA9"), "c%3Aa%20b%25%3F%23%C3%A9");
}

TEST(FindingsSarif, ReportsWhatIsNotShown)
{
    Findings findings;
    for (std::size_t i = 0; i <= Findings::kMaxShown; ++i) {
        findings.Add({Kind::kNameEmpty, 0, "", "", "", ""});
    }
    JsonObject run = RunOf({{"a", "", findings}, {"b", "No such file", {}}});
    EXPECT_EQ(run["results"].GetArraySize(), Findings::kMaxShown);
    JsonObject invocation = run["invocations"][0];
    EXPECT_FALSE(static_cast<bool>(invocation["executionSuccessful"]));
    JsonObject notifications = invocation["toolExecutionNotifications"];
    ASSERT_EQ(notifications.GetArraySize(), 2U);
    EXPECT_EQ(TextOf(notifications[0]["message"]["text"]), "1 more of the kind name-empty");
    EXPECT_EQ(TextOf(notifications[1]["level"]), "error");
    EXPECT_EQ(TextOf(notifications[1]["message"]["text"]), "The list cannot be read: No such file");
    JsonObject complete = RunOf({{"a", "", findings}});
    EXPECT_TRUE(static_cast<bool>(complete["invocations"][0]["executionSuccessful"]));
}
