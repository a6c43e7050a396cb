#include "tools/launchlist/output/sarif_output.h"

#include <algorithm>

#include "tools/launchlist/output/json_writer.h"
#include "util/string_util.h"

namespace launchlist {

namespace {

// `path` as a URI reference. The first name of a relative path must not contain a colon, which
// would end a scheme.
std::string UriOf(const std::string& path)
{
    std::string uri = path.compare(0, 1, "/") == 0 ? "file://" : "";
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        const bool is_plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                              (c >= '0' && c <= '9') ||
                              std::string("-._~/").find(c) != std::string::npos;
        uri += is_plain ? std::string(1, c) : string_format("%%%02X", static_cast<unsigned>(byte));
    }
    return uri;
}

void PutMessage(JsonWriter& json, const char* key, const std::string& text)
{
    json.BeginObject(key);
    json.Text("text", text);
    json.EndObject();
}

void PutArtifact(JsonWriter& json, const std::string& list)
{
    json.BeginObject("artifactLocation");
    json.Text("uri", UriOf(list));
    json.EndObject();
}

void PutRules(JsonWriter& json)
{
    json.BeginArray("rules");
    for (const KindInfo& info : AllKinds()) {
        json.BeginObject();
        json.Text("id", info.name);
        PutMessage(json, "shortDescription", info.meaning);
        json.BeginObject("defaultConfiguration");
        json.Text("level", NameOf(info.severity));
        json.EndObject();
        json.EndObject();
    }
    json.EndArray();
}

void PutTool(JsonWriter& json, const std::string& version)
{
    json.BeginObject("tool");
    json.BeginObject("driver");
    json.Text("name", "launchlist");
    json.Text("semanticVersion", version);
    PutRules(json);
    json.EndObject();
    json.EndObject();
}

void PutNotification(JsonWriter& json, const std::string& list, const char* level,
                     const std::string& text)
{
    json.BeginObject();
    json.Text("level", level);
    PutMessage(json, "message", text);
    json.BeginArray("locations");
    json.BeginObject();
    json.BeginObject("physicalLocation");
    PutArtifact(json, list);
    json.EndObject();
    json.EndObject();
    json.EndArray();
    json.EndObject();
}

void PutInvocation(JsonWriter& json, const std::vector<CheckedList>& lists)
{
    const bool is_complete = std::all_of(
        lists.begin(), lists.end(), [](const CheckedList& list) { return list.error.empty(); });
    json.BeginArray("invocations");
    json.BeginObject();
    json.Bool("executionSuccessful", is_complete);
    json.BeginArray("toolExecutionNotifications");
    for (const CheckedList& list : lists) {
        if (!list.error.empty()) {
            PutNotification(json, list.name, "error", "The list cannot be read: " + list.error);
        }
        for (const auto& [kind, count] : list.findings.not_shown) {
            PutNotification(json, list.name, "note",
                            std::to_string(count) + " more of the kind " + InfoOf(kind).name);
        }
    }
    json.EndArray();
    json.EndObject();
    json.EndArray();
}

void PutLocation(JsonWriter& json, const std::string& list, const Finding& finding)
{
    json.BeginArray("locations");
    json.BeginObject();
    json.BeginObject("physicalLocation");
    PutArtifact(json, list);
    json.BeginObject("region");
    json.Count("startLine", finding.line);
    json.Count("startColumn", finding.column);
    json.EndObject();
    json.EndObject();
    if (!finding.path.empty()) {
        json.BeginArray("logicalLocations");
        json.BeginObject();
        json.Text("fullyQualifiedName", finding.path);
        json.EndObject();
        json.EndArray();
    }
    json.EndObject();
    json.EndArray();
}

void PutResult(JsonWriter& json, const std::string& list, const Finding& finding)
{
    json.BeginObject();
    json.Text("ruleId", InfoOf(finding.kind).name);
    json.Count("ruleIndex", static_cast<std::size_t>(finding.kind));
    json.Text("level", NameOf(finding.severity));
    PutMessage(json, "message",
               finding.message + "\nEffect: " + finding.effect + "\nFix: " + finding.fix);
    PutLocation(json, list, finding);
    json.EndObject();
}

}  // namespace

std::string FindingsSarif(const std::vector<CheckedList>& lists, const std::string& version)
{
    std::string text;
    JsonWriter json([&text](std::string_view piece) { text += piece; });
    json.BeginObject();
    json.Text("$schema",
              "https://docs.oasis-open.org/sarif/sarif/v2.1.0/errata01/os/schemas/"
              "sarif-schema-2.1.0.json");
    json.Text("version", "2.1.0");
    json.BeginArray("runs");
    json.BeginObject();
    PutTool(json, version);
    json.Text("columnKind", "unicodeCodePoints");
    PutInvocation(json, lists);
    json.BeginArray("results");
    for (const CheckedList& list : lists) {
        for (const Finding& finding : list.findings.shown) {
            PutResult(json, list.name, finding);
        }
    }
    json.EndArray();
    json.EndObject();
    json.EndArray();
    json.EndObject();
    json.Finish();
    return text;
}

}  // namespace launchlist
