// What `status` prints.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tools/launchlist/status/status.h"

namespace launchlist {

// `list` is the list that was asked for; "" if all launchers were. `width` is that of the terminal;
// nothing if the output is not a terminal.
std::string StatusText(const Status& status, const std::string& list,
                       std::optional<std::size_t> width, bool color);

// Passes the JSON to `write` in pieces.
void WriteStatusJson(const Status& status, const std::function<void(std::string_view)>& write);
std::string StatusJson(const Status& status);

// "between runs" and "between-runs".
const char* WordsOf(ItemState state);
const char* NameOf(ItemState state);

}  // namespace launchlist
