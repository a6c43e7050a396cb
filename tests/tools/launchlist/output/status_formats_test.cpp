#include "tools/launchlist/output/status_formats.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "json/json_object.h"
#include "tools/launchlist/base/text.h"

using namespace launchlist;

namespace {

constexpr Milliseconds kTime = 1795340451000;  // 2026-11-22T09:00:51Z

ProcessStatus Process(pid_t id, pid_t parent, Milliseconds age)
{
    ProcessStatus process;
    process.id = id;
    process.parent = parent;
    process.start = kTime - age;
    process.cpu = age / 100;
    process.cpu_percent = 1;
    process.memory = 4200000;
    return process;
}

ItemStatus Item(int index, const std::string& name, ItemState state, const std::string& reason)
{
    ItemStatus item;
    item.index = index;
    item.name = name;
    item.state = state;
    item.reason = reason;
    item.restarts = 3;
    item.restarts_last_hour = 2;
    return item;
}

ItemStatus RunningItem(int index, const std::string& name, pid_t id, pid_t parent)
{
    ItemStatus item = Item(index, name, ItemState::kRunning, "");
    item.process = Process(id, parent, 5000);
    return item;
}

// One of everything.
Status FullStatus()
{
    LauncherStatus launcher;
    launcher.process = Process(100, 1, 86400000);
    launcher.executable = "/opt/Kestrane.app/Contents/MacOS/launcher";
    launcher.is_deleted = true;
    launcher.application = "Kestrane Demo";
    launcher.list = "/opt/list.json";
    launcher.list_may_have_changed = true;
    launcher.log = "/home/user/Library/Logs/Kestrane/qv7log";
    launcher.log_may_lack_records = true;
    launcher.running = 4;
    launcher.expected = 10;
    launcher.items = {
        RunningItem(0, "agent", 101, 100),
        RunningItem(1, "twin", 102, 100),
        RunningItem(2, "other twin", 103, 100),
        RunningItem(3, "late", 104, 110),
        Item(4, "starting", ItemState::kStarting, "its child has not executed the program yet"),
        Item(5, "crashing", ItemState::kBetweenRuns, "killed by SIGABRT, 0.02 s ago"),
        Item(6, "missing", ItemState::kFailing, "its program cannot be executed"),
        Item(7, "forkless", ItemState::kAbandoned, "the launcher could not fork"),
        Item(8, "", ItemState::kNeverStarted, "it has no name, so the launcher skips it"),
        Item(9, "twice", ItemState::kReplaced, "item 10 has the same name"),
        Item(10, "twice", ItemState::kUnknown, "no process of it was found"),
    };
    launcher.items[0].matched_by = MatchedBy::kExecutable;
    launcher.items[0].process->memory.reset();
    launcher.items[0].process->cpu_percent.reset();
    launcher.items[1].group = 0;
    launcher.items[2].group = 0;
    launcher.items[3].matched_by = MatchedBy::kInterpreter;
    launcher.items[3].has_further_supervisor = true;
    launcher.items[3].supervisors = 1;
    launcher.items[8].name.reset();
    launcher.items[10].restarts.reset();
    launcher.items[10].restarts_last_hour.reset();
    launcher.groups = {{{1, 2}, 2}};
    launcher.supervisors = {{Process(110, 100, 6000), 3, true},
                            {Process(111, 100, 6000), std::nullopt, true},
                            {Process(112, 100, 10), std::nullopt, false}};
    launcher.others = {{Process(120, 100, 100), "/bin/odd one"}};

    LauncherStatus broken;
    broken.process = Process(200, 1, 1000);
    broken.application = "app";
    broken.log = "/gone/qv7log";
    broken.list = "gone.json";
    broken.list_error = "No such file or directory";
    broken.log_error = "Permission denied";
    broken.log_has_starts = true;

    Status status;
    status.time = kTime;
    status.launchers = {launcher, broken};
    status.unexamined = {300};
    Leftover leftover;
    leftover.process = Process(400, 1, 7000);
    leftover.command = "/opt/agent x";
    leftover.list = "/opt/list.json";
    leftover.items = {0, 1};
    leftover.names = {"agent", "twin"};
    status.leftovers.assign(4, leftover);
    status.leftovers[1].kind = LeftoverKind::kSameCommand;
    status.leftovers[1].items.pop_back();
    status.leftovers[1].names.pop_back();
    for (const std::size_t i : {2U, 3U}) {
        status.leftovers[i].items.clear();
        status.leftovers[i].names.clear();
    }
    status.leftovers[2].kind = LeftoverKind::kHasLog;
    status.leftovers[2].list.clear();
    status.leftovers[3].kind = LeftoverKind::kSupervisor;
    status.leftovers[3].command.clear();
    return status;
}

// Compares `text` with a file in output/printed/, or replaces the file if KESTRANE_RENEW is set.
void ExpectPrinted(const std::string& text, const std::string& name)
{
    const std::string path = KESTRANE_LISTS "/../output/printed/" + name;
    if (std::getenv("KESTRANE_RENEW") != nullptr) {
        std::ofstream(path, std::ios::binary) << text;
    }
    std::ifstream file(path, std::ios::binary);
    const std::string expected((std::istreambuf_iterator<char>(file)),
                               std::istreambuf_iterator<char>());
    EXPECT_EQ(text, expected);
}

}  // namespace

TEST(StatusText, ShowsEverything)
{
    ExpectPrinted(StatusText(FullStatus(), "", std::nullopt, false), "status.txt");
    ExpectPrinted(StatusText(FullStatus(), "", 80, true), "status_color.txt");
}

TEST(StatusText, SaysThatNoLauncherRuns)
{
    EXPECT_EQ(StatusText(Status(), "", std::nullopt, false),
              "No launcher of this user is running.\n");
    EXPECT_EQ(StatusText(Status(), "a\nb", std::nullopt, false),
              "No launcher of this user is running with the list a\\nb.\n");
}

TEST(StatusText, DropsColumnsOnANarrowTerminal)
{
    const Status status = FullStatus();
    EXPECT_NE(StatusText(status, "", 200, false).find("last hour"), std::string::npos);
    const std::string narrow = StatusText(status, "", 60, false);
    EXPECT_EQ(narrow.find("last hour"), std::string::npos);
    EXPECT_NE(narrow.find("restarts"), std::string::npos);
    const std::string narrowest = StatusText(status, "", 1, false);
    EXPECT_EQ(narrowest.find("memory  "), narrowest.find("memory")) << "only that of the launcher";
    EXPECT_NE(narrowest.find("pid"), std::string::npos);
}

TEST(StatusText, LimitsRemarks)
{
    Status status = FullStatus();
    status.launchers[0].items.clear();
    status.launchers[0].groups.clear();
    for (int i = 0; i < 1000; ++i) {
        status.launchers[0].items.push_back(
            Item(i, "n" + std::to_string(i), ItemState::kFailing, "why"));
    }
    const std::string text = StatusText(status, "", std::nullopt, false);
    EXPECT_NE(text.find("\"n19\": failing to start: why\n"), std::string::npos);
    EXPECT_EQ(text.find("\"n20\": failing to start: why\n"), std::string::npos);
    EXPECT_NE(text.find("980 more remarks not shown; --json has all\n"), std::string::npos);
}

TEST(StatusText, IsPrintableWhateverTheNamesAre)
{
    Status status = FullStatus();
    const std::string hostile = "\x1b[2J\n\t\x7f\xe2\x80\xae\xff";
    LauncherStatus& launcher = status.launchers[0];
    for (std::string* text :
         {&launcher.application, &launcher.executable, &launcher.list, &launcher.log,
          &launcher.others[0].command, &*launcher.items[0].name, &launcher.items[5].reason,
          &*launcher.items[1].name, &status.leftovers[0].names[0], &status.leftovers[0].list,
          &status.leftovers[2].command, &status.leftovers[3].list, &status.launchers[1].list_error,
          &status.launchers[1].log_error}) {
        *text = hostile;
    }
    launcher.items[3].name = hostile + "3";
    for (std::string text : {StatusText(status, hostile, std::nullopt, false),
                             StatusText(status, hostile, 80, false)}) {
        for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
            EXPECT_EQ(printable(text.substr(0, end)), text.substr(0, end));
            text.erase(0, end + 1);
        }
        EXPECT_EQ(text, "");
    }
    std::string json = StatusJson(status);
    EXPECT_EQ(json.find('\x1b'), std::string::npos);
    JsonObject parsed(json.c_str());
    EXPECT_EQ(std::string(parsed["launchers"][0]["application"]),
              "\x1b[2J\n\t\x7f\xe2\x80\xae\xef\xbf\xbd");
}

TEST(StatusJson, HasEverything)
{
    ExpectPrinted(StatusJson(FullStatus()), "status.json");
}
