// Processes that a test makes up.
#pragma once

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/launchlist/processes/processes.h"

struct FakeProcess
{
    launchlist::Process process;
    launchlist::Executable executable;
    std::optional<std::string> command_line;
    std::optional<uid_t> user;
    std::string directory;
    std::string input;
};

// "a b" as a command line: the two words, each with a NUL at its end.
inline std::string CommandLine(std::string words)
{
    std::replace(words.begin(), words.end(), ' ', '\0');
    return words + '\0';
}

class FakeProcesses : public launchlist::ProcessTable
{
public:
    // A process of this user with the command line `words`, the program of which is the first.
    FakeProcess& Add(pid_t id, pid_t parent, const std::string& words)
    {
        FakeProcess& fake = m_processes[id];
        fake.process.id = id;
        fake.process.parent = parent;
        fake.process.birth = ++m_births;
        fake.process.start = now - 60000 + static_cast<std::int64_t>(m_births);
        fake.process.memory = 1000000;
        fake.command_line = CommandLine(words);
        fake.executable.path = words.substr(0, words.find(' '));
        fake.user = getuid();
        return fake;
    }

    // A child of a launcher that has not executed a program.
    FakeProcess& Fork(pid_t id, pid_t parent)
    {
        const FakeProcess original = m_processes.at(parent);
        FakeProcess& fake = Add(id, parent, "");
        fake.process.has_executed = false;
        fake.command_line = original.command_line;
        fake.executable = original.executable;
        fake.directory = original.directory;
        return fake;
    }

    FakeProcess& Get(pid_t id) { return m_processes.at(id); }
    void Remove(pid_t id) { m_processes.erase(id); }

    bool List(std::vector<launchlist::Process>& processes, std::string& error) override
    {
        processes.clear();
        for (const auto& entry : m_processes) {
            processes.push_back(entry.second.process);
        }
        error = list_error;
        ++lists;
        if (on_list) {
            on_list();
        }
        return list_error.empty();
    }
    bool ListIds(std::vector<pid_t>& ids, std::string& error) override
    {
        ids.clear();
        for (auto entry = m_processes.rbegin(); entry != m_processes.rend(); ++entry) {
            ids.push_back(entry->first);
        }
        error = list_error;
        return list_error.empty();
    }
    bool IsSame(const launchlist::Process& process) override
    {
        const FakeProcess* fake = Find(process);
        return fake != nullptr && fake->process.birth == process.birth && !fake->process.is_zombie;
    }
    launchlist::Executable ExecutableOf(const launchlist::Process& process) override
    {
        const FakeProcess* fake = Find(process);
        return fake != nullptr ? fake->executable : launchlist::Executable();
    }
    std::optional<std::string> CommandLineOf(const launchlist::Process& process) override
    {
        const FakeProcess* fake = Find(process);
        return fake != nullptr ? fake->command_line : std::nullopt;
    }
    std::optional<uid_t> UserOf(const launchlist::Process& process) override
    {
        const FakeProcess* fake = Find(process);
        return fake != nullptr ? fake->user : std::nullopt;
    }
    std::string DirectoryOf(const launchlist::Process& process) override
    {
        const FakeProcess* fake = Find(process);
        std::string directory = fake != nullptr ? fake->directory : "";
        if (on_directory) {
            on_directory();
        }
        return directory;
    }
    std::string AppendedInputOf(const launchlist::Process& process) override
    {
        const FakeProcess* fake = Find(process);
        return fake != nullptr ? fake->input : "";
    }

    std::int64_t now = static_cast<std::int64_t>(time(nullptr)) * 1000;
    std::string list_error;
    std::function<void()> on_list;       // After the processes have been listed.
    std::function<void()> on_directory;  // After the directory of a process has been read.
    int lists = 0;
    std::map<pid_t, int> questions;  // How often anything but the list was asked for, by process.

private:
    const FakeProcess* Find(const launchlist::Process& process)
    {
        ++questions[process.id];
        const auto found = m_processes.find(process.id);
        return found == m_processes.end() ? nullptr : &found->second;
    }

    std::map<pid_t, FakeProcess> m_processes;
    std::uint64_t m_births = 0;
};
