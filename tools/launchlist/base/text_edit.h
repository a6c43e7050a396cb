// Changes of a text that leave everything else byte for byte as it is.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace launchlist {

// Replaces `size` bytes at `offset` by `text`.
struct TextEdit
{
    std::size_t offset = 0;
    std::size_t size = 0;
    std::string text;
};

// In the order of their offsets; no two overlap.
using TextEdits = std::vector<TextEdit>;

// Sorts edits that do not overlap. Edits at the same offset keep their order.
void SortEdits(TextEdits& edits);

std::string Apply(const TextEdits& edits, const std::string& text);

}  // namespace launchlist
