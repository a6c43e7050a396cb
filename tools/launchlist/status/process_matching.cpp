#include "tools/launchlist/status/process_matching.h"

#include <algorithm>
#include <functional>
#include <map>

namespace launchlist {

namespace {

// A script's command line begins with its interpreter and at most one argument, and a script can be
// the interpreter of another one. A registered interpreter may add words, too.
constexpr int kMaxInterpreterWords = 8;

using Indexes = std::vector<std::size_t>;

class Matcher
{
public:
    Matcher(const std::vector<MatchedItem>& items, const std::vector<MatchedProcess>& processes)
        : m_items(items),
          m_processes(processes),
          m_is_item_open(items.size(), true),
          m_is_process_open(processes.size(), true)
    {
    }

    Matching Run()
    {
        const auto by_command_line = [this](std::size_t item) {
            return m_items[item].command_line.value_or("");
        };
        const auto by_executable = [this](std::size_t item) { return m_items[item].executable; };
        Pass(MatchedBy::kArguments, by_command_line, [this](std::size_t process) {
            return m_processes[process].command_line.value_or("");
        });
        Pass(MatchedBy::kInterpreter, by_command_line,
             [this](std::size_t process) { return WithoutInterpreter(process); });
        Pass(MatchedBy::kExecutable, by_executable,
             [this](std::size_t process) { return m_processes[process].executable; });
        for (std::size_t process = 0; process < m_processes.size(); ++process) {
            if (m_is_process_open[process]) {
                m_result.unmatched.push_back(process);
            }
        }
        return std::move(m_result);
    }

private:
    using KeyOf = std::function<std::string(std::size_t)>;

    // Matches what has the same key. An empty key is that of nothing, except that an empty command
    // line is that of an item with an empty vector.
    void Pass(MatchedBy by, const KeyOf& key_of_item, const KeyOf& key_of_process)
    {
        m_items_by_key.clear();
        for (std::size_t item = 0; item < m_items.size(); ++item) {
            const bool has_key = by == MatchedBy::kExecutable
                                     ? !m_items[item].executable.empty()
                                     : m_items[item].command_line.has_value();
            if (m_is_item_open[item] && has_key) {
                m_items_by_key[key_of_item(item)].push_back(item);
            }
        }
        std::map<std::string, Indexes> processes;
        for (std::size_t process = 0; process < m_processes.size(); ++process) {
            const bool has_key = by == MatchedBy::kExecutable
                                     ? !m_processes[process].executable.empty()
                                     : m_processes[process].command_line.has_value();
            if (m_is_process_open[process] && has_key) {
                processes[key_of_process(process)].push_back(process);
            }
        }
        for (auto& [key, group] : processes) {
            const auto found = m_items_by_key.find(key);
            if (found != m_items_by_key.end() && !(by == MatchedBy::kInterpreter && key.empty())) {
                MatchGroup(by, found->second, group);
            }
        }
    }

    void MatchGroup(MatchedBy by, Indexes items, Indexes processes)
    {
        // A replaced item has a process only in the moment before it is ended.
        const auto is_replaced = [this](std::size_t item) { return m_items[item].is_replaced; };
        const auto lasting = std::stable_partition(
            items.begin(), items.end(), [&](std::size_t item) { return !is_replaced(item); });
        const auto lasting_count = static_cast<std::size_t>(lasting - items.begin());
        if (processes.size() <= lasting_count) {
            items.erase(lasting, items.end());
        }
        if (processes.size() > items.size()) {
            // Some of them have taken the command line of another item. The file tells them apart.
            const auto runs_program = [&](std::size_t process) {
                return m_processes[process].executable == m_items[items.front()].executable;
            };
            if (by != MatchedBy::kArguments || m_items[items.front()].executable.empty()) {
                return;
            }
            processes.erase(
                std::remove_if(processes.begin(), processes.end(),
                               [&](std::size_t process) { return !runs_program(process); }),
                processes.end());
            if (processes.size() != items.size()) {
                return;
            }
        }
        for (const std::size_t process : processes) {
            m_is_process_open[process] = false;
        }
        for (const std::size_t item : items) {
            m_is_item_open[item] = false;
        }
        if (items.size() == 1) {
            m_result.matches.push_back({items.front(), processes.front(), by});
        } else {
            m_result.indistinguishable.push_back({std::move(items), std::move(processes), by});
        }
    }

    // The part of the command line that an open item has; "" if there is none.
    std::string WithoutInterpreter(std::size_t process) const
    {
        const std::string& line = *m_processes[process].command_line;
        std::size_t at = 0;
        for (int words = 0; words < kMaxInterpreterWords; ++words) {
            at = line.find('\0', at);
            if (at == std::string::npos || ++at == line.size()) {
                return "";
            }
            std::string rest = line.substr(at);
            if (m_items_by_key.count(rest) != 0) {
                return rest;
            }
        }
        return "";
    }

    const std::vector<MatchedItem>& m_items;
    const std::vector<MatchedProcess>& m_processes;
    std::vector<bool> m_is_item_open;
    std::vector<bool> m_is_process_open;
    std::map<std::string, Indexes> m_items_by_key;  // Of the present pass.
    Matching m_result;
};

}  // namespace

Matching MatchProcesses(const std::vector<MatchedItem>& items,
                        const std::vector<MatchedProcess>& processes)
{
    return Matcher(items, processes).Run();
}

}  // namespace launchlist
