// What a launch list says: which items there are, and the name, program and arguments of each.
//
// The rules are one for the launcher, which acts on them, and for launchlist, which tells about
// them. When they are asked, and what becomes of the answers, is the caller's business.
//
// Errors: what JsonObject lets through: a list or item that is no object, a value that is not
//         convertible. Such an error may come from any of these functions.
// Note:   a lookup may add the missing member, as null, to the item that it is asked of.
#pragma once

#include <string>

#include "json/json_object.h"

// The member of a list that holds item `index`: its number in decimal.
std::string ItemKey(int index);

// Whether the list goes on at `index`; the first item that is missing ends it.
bool HasItem(JsonObject& list, int index);

// A view of item `index`, which is there.
JsonObject GetItem(JsonObject& list, int index);

// Whether the item has a name at all. One without is skipped; null is the empty name.
bool HasName(JsonObject& item);

// The text that names the item in the log and among the running ones.
std::string ItemName(JsonObject& item);

// The path to execute, taken as it stands; "" for an item that has none.
std::string ItemProgram(JsonObject& item);

// How many arguments follow the program: "argc", cut to 32 bits and not looked at any further, or 0
// without one.
int ItemArgumentCount(JsonObject& item);

// Argument `index`, counted from 0; "" where "args" has none.
std::string ItemArgument(JsonObject& item, int index);
