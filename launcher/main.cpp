// The launcher: starts the helper programs of a launch list and keeps them running until SIGTERM.
//
//     launcher APPLICATION-NAME LAUNCH-LIST

#include "launcher/main.h"

#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <cstdio>
#include <utility>
#include <vector>

#include "json/json_object.h"
#include "launcher/launch_item.h"
#include "launcher/log_messages.h"
#include "logging/event_log.h"
#include "logging/log.h"
#include "logging/log_setup.h"

// Destroyed in reverse order at exit, so any remaining children are killed last.
std::unordered_map<std::string, std::shared_ptr<ChildProc>> g_child_map;
std::mutex g_process_mutex;
std::condition_variable g_process_condition;
ILog* logger = nullptr;

void InitDaemon()
{
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
    signal(SIGTERM, sigterm_handler);
}

void sigterm_handler(int sig)
{
    if (sig != SIGTERM) {
        return;
    }
    if (!g_child_map.empty()) {
        g_child_map.clear();
    }
    g_process_condition.notify_all();
}

bool ReadData(std::string path, std::string& data)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        __LOG__A(logger, LOGLEVEL_ERROR, kListNotOpened, path.c_str());
        return false;
    }
    std::vector<char> bytes;
    while (std::feof(file) == 0) {
        char chunk[128] = {};
        const std::size_t count = std::fread(chunk, 1, sizeof chunk, file);
        bytes.insert(bytes.end(), chunk, chunk + count);
    }
    std::fclose(file);
    if (bytes.empty()) {
        __LOG__A(logger, LOGLEVEL_ERROR, kListEmpty, path.c_str());
        return false;
    }
    // The buffer has no terminating NUL; the text ends at the first NUL of the file, if any.
    data.assign(bytes.data(), strnlen(bytes.data(), bytes.size()));
    return true;
}

namespace {

// Starts a child for every named item of the list: "0", "1" and so on. The first missing number
// ends the list.
void StartChildren(const std::string& app_name, const std::string& list)
{
    JsonObject document(list.c_str(), static_cast<unsigned int>(list.size()));
    for (int i = 0; HasItem(document, i); ++i) {
        JsonObject item = GetItem(document, i);
        if (!HasName(item)) {
            __LOG__A(logger, LOGLEVEL_ERROR, kItemHasNoName);
            continue;
        }
        const std::string name = ItemName(item);
        auto child = std::make_shared<ChildProc>(app_name, item);
        // Destroys an earlier item of the same name, and waits for its supervisor, before the next
        // item is read.
        g_child_map[name] = std::move(child);
    }
}

// Any wake-up counts as a stop request, a spurious one included: the product's stop is the
// notification alone, and one that comes before the wait is lost.
void WaitForStop()
{
    std::unique_lock<std::mutex> lock(g_process_mutex);
    g_process_condition.wait(lock);
}

}  // namespace

int main(int argc, char** argv)
{
    InitDaemon();
    if (argc <= 2) {
        WriteEvent("Morvel Launcher", kEventError, "wrong parameters.");
        return 0;
    }
    const std::string app_name = argv[1];
    const std::string list_path = argv[2];

    // These messages go nowhere: the log is not set up yet. The component that starts the launcher
    // expects an unreadable list to end it silently, and without a log file being created.
    __LOG__A(logger, LOGLEVEL_ERROR, kReadingList, list_path.c_str());
    std::string list;
    if (!ReadData(list_path, list)) {
        __LOG__A(logger, LOGLEVEL_ERROR, kListNotRead, list_path.c_str());
        return 0;
    }

    InitLog(app_name);
    try {
        StartChildren(app_name, list);
    } catch (...) {
        // Also reached if a supervisor thread cannot be created.
        __LOG__A(logger, LOGLEVEL_ERROR, kListRejected);
        return 0;
    }
    WaitForStop();
    return 1;
}
