#include "tools/launchlist/base/text_edit.h"

#include <algorithm>

namespace launchlist {

void SortEdits(TextEdits& edits)
{
    std::stable_sort(edits.begin(), edits.end(), [](const TextEdit& left, const TextEdit& right) {
        return left.offset < right.offset;
    });
}

std::string Apply(const TextEdits& edits, const std::string& text)
{
    std::string result;
    std::size_t at = 0;
    for (const TextEdit& edit : edits) {
        result.append(text, at, edit.offset - at).append(edit.text);
        at = edit.offset + edit.size;
    }
    return result.append(text, at);
}

}  // namespace launchlist
