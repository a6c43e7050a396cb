// Converts ASCII text to wide text, so that one table of cases tests both forms of a function.
#pragma once

#include <string>
#include <vector>

inline std::wstring Wide(const std::string& text)
{
    return std::wstring(text.begin(), text.end());
}

inline std::vector<std::wstring> Wide(const std::vector<std::string>& texts)
{
    std::vector<std::wstring> wide;
    wide.reserve(texts.size());
    for (const std::string& text : texts) {
        wide.push_back(Wide(text));
    }
    return wide;
}
