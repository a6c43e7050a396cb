// Assembles the events of a log into runs and launchers.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/launchlist/log/launcher_event.h"
#include "tools/launchlist/log/report.h"

namespace launchlist {

// Receives the events of a log in their order. report.h says what can be inferred from them.
class History
{
public:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    // What an event concerned: indexes, or kNone. The run of a start or an end is the one that
    // began or ended.
    struct Place
    {
        std::size_t writer = kNone;
        std::size_t item = kNone;
        std::size_t run = kNone;
    };

    // Adds an event, written by `process` at `time`.
    Place Add(const Event& event, std::int64_t process, Milliseconds time);

    // Records may be missing here: some were lost, or a line could not be parsed.
    void AddGap() { ++m_gaps; }

    // A file of the log cannot be read, and its records are missing here. Until the next event is
    // added, what followed the last one is unknown.
    void AddUnreadableFile()
    {
        AddGap();
        m_ends_unreadable = true;
    }

    // Decides how launchers and runs ended, as far as the events so far show it. The arguments are
    // those of Finish. May be called again after further events.
    void Decide(Milliseconds last_record, Milliseconds now);

    // What is known about an event that was added before the last call of Decide.
    struct Knowledge
    {
        std::string_view name;      // The item's.
        const Run* run = nullptr;   // With a run.
        bool is_restarted = false;  // An end: its supervisor started the program again.
        bool is_continued =
            false;  // A start: the child that could not execute the program wrote it.
        // Until this time, a further record may show more. Nothing: all is known.
        std::optional<Milliseconds> open_until;
        std::size_t launcher = kNone;
        std::int64_t launcher_process = 0;
        // The id of the launcher that `launcher` may be a child of, rather than a launcher.
        std::optional<std::int64_t> possible_parent;
    };
    Knowledge KnowledgeOf(EventKind kind, const Place& place) const;
    std::vector<std::string> ItemNames() const;

    // Moves items, runs and launchers into `report`, whose last_record must be set. `now` is the
    // time at which the log was read: if it is later than the last record, nothing followed that
    // record. With `launcher`, only what launchers of this process id did. With `is_selected`, the
    // launchers of the items for which it returns true are marked. Nothing may be added afterwards.
    void Finish(Report& report, Milliseconds now,
                std::optional<std::int64_t> launcher = std::nullopt,
                const std::function<bool(const std::string&)>& is_selected = nullptr);

private:
    // One process supervising one item.
    struct Supervision
    {
        std::size_t run = kNone;    // Of the item's runs, the one that has not ended.
        std::size_t older = kNone;  // The same for an earlier item of the same name.
        std::size_t last = kNone;   // The run that ended last.
        std::size_t gaps = 0;  // The gaps of the log at the start of `run`, or at the last end.
        Milliseconds last_end = 0;  // Only with `last`.
        bool is_killed = false;     // `last` ended by signal 9.
        bool is_abandoned = false;
    };

    // A process that wrote about items: a launcher, or a child that could not execute its program
    // and continues as a supervisor. If its process id is used again, that is another writer.
    struct Writer
    {
        std::int64_t process = 0;
        Milliseconds first = 0;
        Milliseconds last = 0;
        std::size_t parent = kNone;  // Of such a child: the writer that started it.
        // The writer that may have started it, and is not known to have. Only without `parent`.
        std::size_t possible_parent = kNone;
        std::size_t parent_run = kNone;  // Of `parent` or `possible_parent`.
        bool writes_starts = false;
        bool has_ends = false;
        bool is_rejected = false;
        bool is_gone = false;  // Another process has its id.
        std::size_t open_runs = 0;
        std::size_t gaps = 0;  // The gaps of the log at its first record.
        // Most writers have one item, so the first is stored without a map.
        std::size_t item = kNone;
        Supervision supervision;
        std::unique_ptr<std::unordered_map<std::size_t, Supervision>> more;
        LauncherEnd end = LauncherEnd::kUnknown;
        bool is_certain = true;
        Milliseconds stop_from = 0;  // Of a stop: the first end that it caused.
        // Records after this time may be another launcher's.
        std::optional<Milliseconds> may_be_other_after;

        Supervision* Find(std::size_t index);
        const Supervision* Find(std::size_t index) const;
        Supervision& Get(std::size_t index);
        std::size_t CountItems() const;
        template <typename Visit>
        void ForEach(Visit visit);
    };

    // An event that is not part of a run.
    struct Failure
    {
        Milliseconds time = 0;
        std::size_t writer = kNone;  // Of its supervisor, if known.
    };

    struct Item
    {
        std::string name;
        std::vector<Run> runs;
        std::vector<std::size_t> writers;
        std::vector<std::size_t> launchers;  // Sorted by their first records.
        std::vector<Failure> no_program;
        std::vector<Failure> failed_forks;
        std::size_t last_start = kNone;  // The run that was started last.
        std::size_t last_starter = kNone;
        std::int64_t child_without_program = 0;  // The last such child.
        // The writers that are possibly children, by the runs that they would belong to.
        std::map<std::size_t, std::size_t> possible_children;
    };

    std::size_t ItemOf(std::string_view name);
    std::size_t WriterOf(const Event& event, std::int64_t process, std::size_t item,
                         Milliseconds time);
    std::size_t NewWriter(std::int64_t process, Milliseconds time);
    bool IsReused(Writer& writer, const Event& event, std::size_t item, Milliseconds time) const;
    Supervision& SupervisionOf(std::size_t writer, std::size_t item);
    std::size_t ParentOf(const Item& item, Milliseconds time) const;
    std::size_t PossibleParentOf(const Item& item, Milliseconds time) const;
    void RemovePossibleParent(Writer& writer);
    std::size_t RootOf(std::size_t writer) const;

    std::size_t AddStart(std::size_t writer, std::size_t item, Milliseconds time, bool is_new);
    std::size_t AddEnd(const Event& event, std::size_t writer, std::size_t item, Milliseconds time);
    void AddForkFailed(std::size_t writer, std::size_t item, Milliseconds time);
    void AddNoProgram(std::size_t item, std::int64_t child, Milliseconds time);
    void AdoptChild(std::int64_t child, std::size_t parent, std::size_t item, std::size_t run,
                    std::optional<Milliseconds> since);

    static void NoteRestart(Run& run, Milliseconds time);
    static bool MayBeOther(const Writer& writer, const Supervision& supervision);
    static bool FindStop(Writer& writer, std::size_t& killed);
    bool IsReplaced(std::size_t writer);
    void DecideEnd(std::size_t writer, Milliseconds last_record, Milliseconds now);
    void DecideCauses(std::size_t writer);
    void FindRoots();
    void SortLaunchers();
    void FinishRuns(Item& item, Milliseconds last_record);
    std::optional<std::int64_t> PossibleLauncherOf(std::size_t launcher) const;
    bool IsOf(std::optional<std::int64_t> launcher, std::size_t writer) const;
    std::vector<Milliseconds> TimesOf(const std::vector<Failure>& failures,
                                      std::optional<std::int64_t> launcher) const;

    std::vector<Item> m_items;
    std::unordered_map<std::string, std::size_t> m_by_name;
    std::vector<Writer> m_writers;
    std::unordered_map<std::int64_t, std::size_t> m_by_process;  // The present writer of an id.
    std::vector<std::size_t> m_roots;  // The launcher of each writer; known at the end.
    std::size_t m_gaps = 0;
    bool m_ends_unreadable = false;  // An unreadable file follows the last event.
    Milliseconds m_last_event = 0;   // Its time.
};

}  // namespace launchlist
