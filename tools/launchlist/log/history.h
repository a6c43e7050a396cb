// Following supervisors through the events of a log.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/launchlist/log/launcher_event.h"
#include "tools/launchlist/log/report_data.h"

namespace launchlist {

// Puts the events of a log, in their order, together to runs.
class History
{
public:
    // Adds an event about an item, written by `process` at `time`.
    void Add(const Event& event, std::int64_t process, Milliseconds time);

    // Adds an event about no item.
    void AddProcess(std::int64_t process, Milliseconds time);

    // Moves the result into `report`, whose range is known. Nothing may be added after that.
    void Finish(Report& report);

private:
    // One process at one item.
    struct Supervision
    {
        std::optional<std::size_t> run;  // Of the item's runs, the one that has not ended.
        std::optional<Milliseconds> last_end;
    };

    struct Process
    {
        Milliseconds first = 0;  // Its first record.
        bool writes_starts = false;
        std::map<std::size_t, Supervision> items;
        // Set while everything it wrote is about one item, in whose start it began: a child that
        // could not execute its program.
        bool carries_on = false;
        std::size_t carried_item = 0;
        std::size_t carried_run = 0;
    };

    struct Item
    {
        ItemReport report;
        std::vector<std::int64_t> supervisors;
        std::vector<Milliseconds> restarts;
        std::optional<std::size_t> last_run;  // The last one that was started, by whom, and when.
        std::int64_t last_starter = 0;
        Milliseconds last_start = 0;
    };

    std::size_t ItemOf(std::string_view name);
    Process& ProcessOf(std::int64_t id, Milliseconds time, bool& is_new);
    Supervision& SupervisionOf(std::int64_t id, std::size_t item, Milliseconds time);
    bool CarriesOn(const Item& item, Milliseconds time) const;
    void TakeInChild(const Event& event, std::size_t item, std::size_t run, Milliseconds since);
    void AddStart(std::int64_t id, std::size_t item, Milliseconds time);
    void AddEnd(const Event& event, std::int64_t id, std::size_t item, Milliseconds time);
    void AddNoProgram(std::int64_t id, std::size_t item);
    void AddForkFailed(std::int64_t id, std::size_t item, Milliseconds time);
    void FailRun(std::size_t item, std::size_t run);
    bool LacksStarts(const Item& item) const;
    State StateOf(const Item& item, Milliseconds last) const;

    std::vector<Item> m_items;
    std::unordered_map<std::string, std::size_t> m_by_name;
    std::unordered_map<std::int64_t, Process> m_processes;
    std::size_t m_launchers = 0;
    std::int64_t m_last_launcher = 0;
    bool m_has_starts = false;
};

}  // namespace launchlist
