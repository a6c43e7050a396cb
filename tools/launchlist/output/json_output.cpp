#include "tools/launchlist/output/json_output.h"

#include "tools/launchlist/base/text.h"

namespace launchlist {

void PutText(JsonObject& object, const char* key, const std::string& text)
{
    object[key] = text;
}

void PutNumber(JsonObject& object, const char* key, long long value)
{
    PutValue(object, key, JsonObject(std::to_string(value).c_str()));
}

void PutBool(JsonObject& object, const char* key, bool value)
{
    PutValue(object, key, JsonObject(value ? "true" : "false"));
}

void PutNull(JsonObject& object, const char* key)
{
    PutValue(object, key, JsonObject("null"));
}

void PutValue(JsonObject& object, const char* key, const JsonObject& value)
{
    object.Insert(key, value);
}

JsonObject EmptyList()
{
    return JsonObject("[]");
}

std::string Serialized(JsonObject value)
{
    return safe_json(value.ToStyledText()) + "\n";
}

}  // namespace launchlist
