// Renaming a file without replacing another one.
#pragma once

namespace qv7log {

// Renames `from` to `to`. Returns false, with an errno, if `to` exists or the file cannot be
// renamed.
bool RenameExclusive(const char* from, const char* to);

}  // namespace qv7log
