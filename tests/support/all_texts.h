// All texts of up to `length` of the `letters`, including the empty one, ordered by length.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

inline std::vector<std::string> AllTexts(const std::string& letters, std::size_t length)
{
    std::vector<std::string> texts = {""};
    for (std::size_t i = 0; i < texts.size() && texts[i].size() < length; ++i) {
        for (const char letter : letters) {
            texts.push_back(texts[i] + letter);
        }
    }
    return texts;
}
