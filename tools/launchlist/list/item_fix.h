// Correcting the members of one item.
#pragma once

#include <string>
#include <vector>

#include "json/json_source.h"
#include "tools/launchlist/base/text_edit.h"

namespace launchlist {

// A list that the reader accepts.
struct ListText
{
    const std::string& text;
    const JsonSource& source;
};

// Adds the edits that correct `item`, an object. fix.h says which.
void FixItem(const ListText& list, const JsonPlace& item, TextEdits& edits);

// Adds the edits that remove those of `members` that a later one of the same name replaces: the
// member, the comma after it, and its whole lines if there is nothing else on them.
void RemoveReplaced(const ListText& list, const std::vector<JsonMember>& members, TextEdits& edits);

// Adds the edit that changes the name of `member`, unless it has that name.
void Rename(const JsonMember& member, const std::string& name, TextEdits& edits);

}  // namespace launchlist
