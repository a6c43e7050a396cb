// Reading a launch list: its items, and the name, program and arguments of each.
//
// The launcher acts on these rules and launchlist reports on them, so both read a list alike.
//
// Errors: every function may throw an exception of the JSON library: if the list or the item is
//         not an object, or if a value cannot be converted.
// Note:   a lookup of a missing member may add it, as null, to the item.
#pragma once

#include <string>

#include "json/json_object.h"

// The name of the member that holds item or argument `index`: the number in decimal.
std::string ItemKey(int index);

// Whether the list has item `index`. The first missing item ends the list.
bool HasItem(JsonObject& list, int index);

// A view of item `index`, which must exist.
JsonObject GetItem(JsonObject& list, int index);

// Whether the item has a "name" member; null counts as the empty name. An item without one is
// skipped.
bool HasName(JsonObject& item);

// The item's name in the log and its key among the running items.
std::string ItemName(JsonObject& item);

// The path to execute, unchanged; "" if the item has no program.
std::string ItemProgram(JsonObject& item);

// The number of arguments that follow the program: "argc", cut to 32 bits and otherwise unchecked;
// 0 if the item has no "argc".
int ItemArgumentCount(JsonObject& item);

// Argument `index`, counted from 0; "" if "args" does not hold it.
std::string ItemArgument(JsonObject& item, int index);
