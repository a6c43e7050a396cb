// Colours of a terminal.
#pragma once

#include <string>

namespace launchlist {

enum class Style
{
    kBold,
    kDim,
    kRed,
    kYellow,
    kGreen,
    kCyan
};

// `text`, which must be printable, in `style`; unchanged without `color`.
std::string styled(const std::string& text, Style style, bool color);

}  // namespace launchlist
