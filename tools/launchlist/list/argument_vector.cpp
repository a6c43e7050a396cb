#include "tools/launchlist/list/argument_vector.h"

#include "launcher/launch_item.h"
#include "tools/launchlist/list/item_number.h"

namespace launchlist {

std::set<int> FindArguments(JsonObject& item, int count)
{
    std::set<int> given;
    if (count <= 0) {
        return given;
    }
    for (const std::string& key : item["args"].GetKeys()) {
        if (IsPlainNumber(key) && key.size() <= 9 && std::stoi(key) < count) {
            given.insert(std::stoi(key));
        }
    }
    return given;
}

void AppendArguments(JsonObject& item, int count, const std::set<int>& given,
                     ArgumentVector& arguments)
{
    int next = 0;
    const auto append_missing = [&](int end) {
        if (next < end) {
            arguments.push_back({"", static_cast<std::size_t>(end - next)});
        }
    };
    for (const int index : given) {
        append_missing(index);
        arguments.push_back({ItemArgument(item, index)});
        next = index + 1;
    }
    append_missing(count);
}

}  // namespace launchlist
