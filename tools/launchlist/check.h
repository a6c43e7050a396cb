// Finding the mistakes of a launch list.
//
// Nothing is run, signalled or written. The only files looked at, besides the list, are the
// programs that it names.
#pragma once

#include <string>

#include "json/json_object.h"
#include "json/json_source.h"
#include "tools/launchlist/finding.h"

namespace launchlist {

// Every mistake of the list whose file holds `bytes`, in the order of the text.
Findings CheckList(const std::string& bytes);

// One item to look at.
struct ItemToCheck
{
    const JsonSource& source;
    const JsonMember& member;  // The item in its list.
    JsonObject item;           // The same as the launcher has it.
    std::string path;
};

// Appends the mistakes of one item; those that take more than one item to see are CheckList's.
void CheckItem(ItemToCheck& item, Findings& findings);

// Appends the mistakes of "argc" and "args".
void CheckArguments(ItemToCheck& item, Findings& findings);

// Gives the findings from `first` on another effect: what is wrong with an item that is not started
// does nothing until it is.
void Defer(Findings& findings, std::size_t first, const char* effect);

// `path` with the member `name` behind it, as a JSON pointer.
std::string MemberPath(const std::string& path, const std::string& name);

// Appends a warning for every member that a later one of its name replaces.
void CheckReplaced(const std::vector<JsonMember>& members, const std::string& path,
                   Findings& findings);

}  // namespace launchlist
