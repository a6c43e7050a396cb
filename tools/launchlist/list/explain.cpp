#include "tools/launchlist/list/explain.h"

#include <algorithm>
#include <map>
#include <set>

#include "launcher/launch_item.h"
#include "tools/launchlist/list/argument_vector.h"
#include "tools/launchlist/list/effects.h"
#include "tools/launchlist/list/item_number.h"
#include "tools/launchlist/list/problems.h"

namespace launchlist {

namespace {

// Decides the outcome of an item whose arguments are known.
void ExplainExecution(ExplainedItem& item, ProgramFiles& files)
{
    const ProgramFile& file = files.Examine(*item.program);
    if (file.CannotRun()) {
        item.problem = file.message;
        item.effect = effects::ProgramProblem(file);
        item.may_be_registered = file.may_be_registered;
    } else if ((item.too_long = FindTooLong(*item.arguments))) {
        item.problem = item.too_long->message;
        item.effect = effects::kCannotExecute;
    } else {
        if (file.problem) {
            item.note = file.message;
            item.is_foreign = *file.problem == Kind::kProgramForeign;
        }
        return;
    }
    item.outcome = ItemOutcome::kCannotExecute;
}

// The count of arguments. Throws if the child would abort; `problem` then says why.
int ReadCount(JsonObject& json, std::string& problem)
{
    problem = problems::kArgcType;
    if (json.HasObject("argc")) {
        static_cast<void>(static_cast<double>(json["argc"]));  // Throws if it is not a number.
    }
    problem = problems::kArgcTooWide;
    const int count = ItemArgumentCount(json);
    problem.clear();
    return count;
}

// Appends the first `count` arguments to those of `item`. Looks up only those that "args" holds:
// the lookup of a missing one adds it to the list. Throws if the child would abort; the item's
// problem then says why.
void AppendArguments(JsonObject& json, int count, ExplainedItem& item)
{
    if (count <= 0) {
        return;
    }
    item.problem = problems::kArgsType;
    std::set<int> given;
    for (const std::string& key : json["args"].GetKeys()) {
        if (IsPlainNumber(key) && key.size() <= 9 && std::stoi(key) < count) {
            given.insert(std::stoi(key));
        }
    }
    item.problem = problems::kArgumentType;
    ArgumentVector& arguments = *item.arguments;
    int next = 0;
    const auto append_missing = [&](int end) {
        if (next < end) {
            arguments.push_back({"", static_cast<std::size_t>(end - next)});
        }
    };
    for (const int index : given) {
        append_missing(index);
        arguments.push_back({ItemArgument(json, index)});
        next = index + 1;
    }
    append_missing(count);
}

// The arguments of an item whose program is not empty. Throws if the child would abort.
void ExplainArguments(JsonObject& json, ExplainedItem& item, ProgramFiles& files)
{
    const int count = ReadCount(json, item.problem);
    item.is_problem_in_args = true;
    if (count < -1) {
        item.outcome = ItemOutcome::kUndefined;
        item.problem = problems::ArgcIs(count);
        item.effect = effects::kUndefined;
        return;
    }
    const StackFit fit = FitOnStack(count);
    if (fit != StackFit::kFits) {
        const bool may_fit = fit == StackFit::kMayOverrun;
        item.outcome = may_fit ? ItemOutcome::kMayOverrunStack : ItemOutcome::kOverrunsStack;
        item.problem = problems::ArgcIs(count);
        item.effect = may_fit ? effects::kMayOverrunStack : effects::kOverrunsStack;
        return;
    }
    item.arguments.emplace();
    if (count >= 0) {
        item.arguments->push_back({*item.program});
    }
    AppendArguments(json, count, item);
    item.problem.clear();
    ExplainExecution(item, files);
    if (count == -1 && item.outcome == ItemOutcome::kRuns) {
        item.note += (item.note.empty() ? "" : "; ") + std::string(effects::kEmptyVector);
    }
}

class Explainer
{
public:
    explicit Explainer(Explanation& explanation) : m_explanation(explanation) {}

    // The items of `list`, up to the first gap. Throws if the launcher would reject an item, which
    // is then the last of the explanation.
    void ReadItems(JsonObject& list)
    {
        for (int index = 0; HasItem(list, index); ++index) {
            m_explanation.items.push_back({});
            m_explanation.items.back().index = index;
            m_explanation.items.back().outcome = ItemOutcome::kRejected;
            m_explanation.items.back().problem = problems::kItemType;
            ReadItem(list, index);
        }
    }

    void FinishItems()
    {
        for (ExplainedItem& item : m_explanation.items) {
            if (item.outcome == ItemOutcome::kSignalsGroup) {
                item.effect =
                    m_started == 1 ? effects::kSignalsGroup : effects::kSignalsGroupOrSibling;
            }
        }
        if (m_explanation.is_rejected && !m_explanation.items.empty()) {
            m_explanation.items.back().effect =
                effects::RejectedAtItem(m_started == 0, Has(ItemOutcome::kAbortsLauncher) ||
                                                            Has(ItemOutcome::kSignalsGroup));
        }
        m_explanation.outcomes = Outcomes();
        for (ExplainedItem& item : m_explanation.items) {
            item.runs = LikelihoodOf(item);
            if (item.runs == Likelihood::kNever) {
                item.arguments.reset();
            }
        }
    }

private:
    void ReadItem(JsonObject& list, int index)
    {
        JsonObject json = GetItem(list, index);
        if (!HasName(json)) {
            m_explanation.items.back().outcome = ItemOutcome::kSkipped;
            m_explanation.items.back().problem =
                json.IsValid() ? problems::kNoName : problems::kItemIsNull;
            m_explanation.items.back().effect = effects::Skipped();
            return;
        }
        m_explanation.items.back().problem = problems::kNameType;
        const std::string name = ItemName(json);
        ExplainedItem item = ExplainProgram(json, m_files);
        item.index = index;
        item.name = name;
        const auto [earlier, is_new] = m_last.emplace(name, index);
        if (!is_new) {
            item.replaces = earlier->second;
            item.first_user = FirstUserOf(earlier->second);
            m_explanation.items[static_cast<std::size_t>(earlier->second)].replaced_by = index;
            earlier->second = index;
        }
        m_explanation.items.back() = std::move(item);
        ++m_started;
    }

    // The first item with the name of item `earlier`; possibly that item itself.
    int FirstUserOf(int earlier) const
    {
        return m_explanation.items[static_cast<std::size_t>(earlier)].first_user.value_or(earlier);
    }

    bool Has(ItemOutcome outcome) const
    {
        return std::any_of(
            m_explanation.items.begin(), m_explanation.items.end(),
            [outcome](const ExplainedItem& item) { return item.outcome == outcome; });
    }

    // Whether any item has this outcome and is not ended by a later one.
    bool HasLasting(ItemOutcome outcome) const
    {
        return std::any_of(m_explanation.items.begin(), m_explanation.items.end(),
                           [outcome](const ExplainedItem& item) {
                               return item.outcome == outcome && !item.replaced_by;
                           });
    }

    LauncherOutcomes Outcomes() const
    {
        const bool is_rejected = m_explanation.is_rejected;
        const bool ends_an_item = (is_rejected && m_started > 0) || m_last.size() < m_started;
        // An item whose program cannot be converted ends the launcher in any case: if it is ended
        // before its thread gets there, it has not forked, and the whole group is killed.
        if (Has(ItemOutcome::kAbortsLauncher)) {
            return ends_an_item || Has(ItemOutcome::kSignalsGroup)
                       ? LauncherOutcomes{{Outcome::kAborts, Condition::kTiming},
                                          {Outcome::kGroupKilled, Condition::kTiming}}
                       : LauncherOutcomes{{Outcome::kAborts, Condition::kAlways}};
        }
        if (is_rejected) {
            return m_started == 0 ? LauncherOutcomes{{Outcome::kExits, Condition::kAlways}}
                                  : LauncherOutcomes{{Outcome::kExits, Condition::kTiming},
                                                     {Outcome::kGroupKilled, Condition::kTiming}};
        }
        LauncherOutcomes outcomes;
        if (HasLasting(ItemOutcome::kSignalsGroup)) {
            outcomes.push_back({Outcome::kGroupKilled, Condition::kAlways});
            if (m_started == 1) {
                return outcomes;
            }
            outcomes.push_back({Outcome::kKeepsRunning, Condition::kMacOs});
        } else if (ends_an_item) {
            outcomes.push_back({Outcome::kKeepsRunning, Condition::kTiming});
            outcomes.push_back({Outcome::kGroupKilled, Condition::kTiming});
        } else {
            outcomes.push_back({Outcome::kKeepsRunning, Condition::kAlways});
        }
        if (Has(ItemOutcome::kCannotExecute) || Has(ItemOutcome::kUndefined)) {
            outcomes.push_back({Outcome::kUserKilled, Condition::kProcessLimit});
        }
        return outcomes;
    }

    Likelihood LikelihoodOf(const ExplainedItem& item) const
    {
        switch (item.outcome) {
            case ItemOutcome::kRuns:
                break;
            case ItemOutcome::kUndefined:
            case ItemOutcome::kMayOverrunStack:
                return Likelihood::kPossibly;
            case ItemOutcome::kCannotExecute:
                return item.may_be_registered ? Likelihood::kPossibly : Likelihood::kNever;
            default:
                return Likelihood::kNever;
        }
        // A process limit is reached long after every item has been started.
        const auto ends_early = [](const LauncherOutcome& outcome) {
            return outcome.outcome != Outcome::kKeepsRunning &&
                   outcome.condition != Condition::kProcessLimit;
        };
        const LauncherOutcomes& outcomes = m_explanation.outcomes;
        const bool may_end_early = std::any_of(outcomes.begin(), outcomes.end(), ends_early);
        return may_end_early || item.is_foreign ? Likelihood::kPossibly : Likelihood::kCertainly;
    }

    Explanation& m_explanation;
    ProgramFiles m_files;
    std::map<std::string, int> m_last;  // The last item of every name.
    std::size_t m_started = 0;          // Items with a name, for which a supervisor is started.
};

}  // namespace

ExplainedItem ExplainProgram(JsonObject& json, ProgramFiles& files)
{
    ExplainedItem item;
    const bool has_program = json.HasObject("program");  // Reading it adds a missing one.
    try {
        item.program = ItemProgram(json);
    } catch (const std::exception&) {
        item.outcome = ItemOutcome::kAbortsLauncher;
        item.problem = problems::kProgramType;
        item.effect = effects::kAbortsLauncher;
        return item;
    }
    if (item.program->empty()) {
        item.outcome = ItemOutcome::kSignalsGroup;
        item.problem = !has_program                ? problems::kNoProgram
                       : json["program"].IsValid() ? problems::kProgramIsEmpty
                                                   : problems::kProgramIsNull;
        item.effect = effects::kSignalsGroupOrSibling;
        return item;
    }
    try {
        ExplainArguments(json, item, files);
    } catch (const std::exception&) {
        item.arguments.reset();
        item.outcome = ItemOutcome::kAbortsChild;
        item.effect = effects::kAbortsChild;
    }
    return item;
}

Explanation ExplainList(const std::string& bytes)
{
    Explanation explanation;
    if (bytes.empty()) {
        explanation.list_effect = effects::kEndsInSilence;
        explanation.is_rejected = true;
        explanation.outcomes = {{Outcome::kExits, Condition::kAlways}};
        return explanation;
    }
    const std::string text = bytes.substr(0, bytes.find('\0'));
    Explainer explainer(explanation);
    try {
        JsonObject list(text.c_str(), static_cast<unsigned int>(text.size()));
        explainer.ReadItems(list);
    } catch (...) {
        explanation.is_rejected = true;
        if (explanation.items.empty()) {
            explanation.list_effect = effects::RejectedAtStart();
        }
    }
    explainer.FinishItems();
    return explanation;
}

}  // namespace launchlist
