#include "tools/launchlist/output/terminal_style.h"

namespace launchlist {

std::string styled(const std::string& text, Style style, bool color)
{
    static constexpr const char* kCodes[] = {"1", "2", "1;31", "1;33", "32", "36"};
    if (!color || text.empty()) {
        return text;
    }
    return std::string("\033[") + kCodes[static_cast<int>(style)] + "m" + text + "\033[0m";
}

}  // namespace launchlist
