#include "tools/launchlist/list/explain.h"

#include <map>

#include "launcher/launch_item.h"
#include "tools/launchlist/list/argument_vector.h"
#include "tools/launchlist/list/effects.h"

namespace launchlist {

namespace {

std::vector<std::string> Arguments(JsonObject& item, const std::string& program, int count)
{
    std::vector<std::string> arguments = {program};
    for (int i = 0; i < count; ++i) {
        arguments.push_back(ItemArgument(item, i));
    }
    return arguments;
}

// What the child makes of "argc" and "args".
void ExplainArguments(JsonObject& item, Step& step)
{
    try {
        const int count = ItemArgumentCount(item);
        if (count < -1) {
            step.note = kOverrunsVector;
        } else if (!FitsStack(count)) {
            step.note = kOverrunsStack;
        } else if (count == -1) {
            step.arguments.emplace();
            step.note = kEmptyVector;
        } else {
            step.arguments = Arguments(item, *step.program, count);
        }
    } catch (const std::exception&) {
        step.note = kAbortsChild;
    }
}

// What the supervisor makes of "program".
void ExplainProgram(JsonObject& item, Step& step)
{
    try {
        step.program = ItemProgram(item);
    } catch (const std::exception&) {
        step.note = kTerminates;
        return;
    }
    if (step.program->empty()) {
        step.note = kSignalsGroup;
    } else {
        ExplainArguments(item, step);
    }
}

// Appends the step at `index`. Throws where the launcher gives up; the step then is there already.
void TakeStep(JsonObject& list, int index, std::map<std::string, int>& running, Walk& walk)
{
    walk.steps.push_back({});
    Step& step = walk.steps.back();
    step.index = index;
    step.note = kRefusedOnTheWay;
    JsonObject item = GetItem(list, index);
    if (!HasName(item)) {
        step.note = kSkipped;
        return;
    }
    step.name = ItemName(item);
    step.note.clear();
    const auto [earlier, is_new] = running.emplace(*step.name, index);
    if (!is_new) {
        step.replaced = earlier->second;
        earlier->second = index;
    }
    ExplainProgram(item, step);
}

}  // namespace

Walk ExplainList(const std::string& bytes)
{
    Walk walk;
    if (bytes.empty()) {
        walk.end = kEndsInSilence;
        walk.ends_launcher = true;
        return walk;
    }
    const std::string text = bytes.substr(0, bytes.find('\0'));
    try {
        JsonObject list(text.c_str(), static_cast<unsigned int>(text.size()));
        std::map<std::string, int> running;
        int index = 0;
        for (; HasItem(list, index); ++index) {
            TakeStep(list, index, running, walk);
        }
        walk.end = "there is no item \"" + ItemKey(index) + "\": the walk ends";
    } catch (...) {
        walk.end = walk.steps.empty() ? kRefusedAtStart : "the launcher ends here";
        walk.ends_launcher = true;
    }
    return walk;
}

}  // namespace launchlist
