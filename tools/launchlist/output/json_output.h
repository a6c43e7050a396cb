// Building the output of `--json` with JsonObject.
#pragma once

#include <string>

#include "json/json_object.h"

namespace launchlist {

// Sets member `key` of `object`.
void PutText(JsonObject& object, const char* key, const std::string& text);
void PutNumber(JsonObject& object, const char* key, long long value);
void PutBool(JsonObject& object, const char* key, bool value);
void PutNull(JsonObject& object, const char* key);
void PutValue(JsonObject& object, const char* key, const JsonObject& value);

template <typename Number>
void PutNumber(JsonObject& object, const char* key, Number value)
{
    PutNumber(object, key, static_cast<long long>(value));
}

// An empty array.
JsonObject EmptyList();

// `value` as JSON text that is safe to show (safe_json), with a line feed at the end.
std::string Serialized(JsonObject value);

}  // namespace launchlist
