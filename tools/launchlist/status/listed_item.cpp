#include "tools/launchlist/status/listed_item.h"

#include <unordered_map>

#include "launcher/launch_item.h"
#include "tools/launchlist/list/argument_vector.h"

namespace launchlist {

namespace {

// The command line of an item with a program. Throws if an argument cannot be converted.
std::optional<std::string> CommandLine(JsonObject& json, const std::string& program)
{
    const int count = ItemArgumentCount(json);
    if (count < -1 || FitOnStack(count) != StackFit::kFits) {
        return std::nullopt;
    }
    ArgumentVector arguments;
    if (count >= 0) {
        arguments.push_back({program});
    }
    AppendArguments(json, count, FindArguments(json, count), arguments);
    std::string line;
    for (const ArgumentRun& run : arguments) {
        for (std::size_t i = 0; i < run.count; ++i) {
            line += run.text + '\0';
        }
    }
    return line;
}

void ReadProgram(JsonObject& json, ListedItem& item)
{
    try {
        item.program = ItemProgram(json);
    } catch (const std::exception&) {
        item.problem = "its \"program\" is not a string";
        return;
    }
    if (item.program.empty()) {
        item.problem = "it has no program";
        return;
    }
    try {
        item.command_line = CommandLine(json, item.program);
        if (!item.command_line) {
            item.problem = "its number of arguments is out of range";
        }
    } catch (const std::exception&) {
        item.problem = "its arguments cannot be converted";
    }
}

}  // namespace

ListedItems ReadItems(const std::string& bytes)
{
    ListedItems result;
    const std::string text = bytes.substr(0, bytes.find('\0'));
    std::unordered_map<std::string, std::size_t> last;
    try {
        JsonObject list(text.c_str(), static_cast<unsigned int>(text.size()));
        for (int index = 0; HasItem(list, index); ++index) {
            JsonObject json = GetItem(list, index);
            ListedItem item;
            item.index = index;
            if (HasName(json)) {
                item.name = ItemName(json);
                ReadProgram(json, item);
                const auto [earlier, is_new] = last.emplace(*item.name, result.items.size());
                if (!is_new) {
                    result.items[earlier->second].replaced_by = index;
                    earlier->second = result.items.size();
                }
            }
            result.items.push_back(std::move(item));
        }
    } catch (...) {
        result.is_rejected = true;
    }
    return result;
}

}  // namespace launchlist
