// Showing what an edit changes, in the form that diff -u prints and patch reads.
#pragma once

#include <string>

#include "tools/launchlist/base/text_edit.h"

namespace launchlist {

// The difference that `edits` make to `text`, the contents of the file at `path`; "" if there are
// no edits. Lines end in "\n". The bytes of the text are copied, so the result can control a
// terminal.
std::string UnifiedDiff(const std::string& path, const std::string& text, const TextEdits& edits);

// A unified diff that is safe to print to a terminal. `color` adds escape sequences.
std::string DiffForTerminal(const std::string& diff, bool color);

}  // namespace launchlist
