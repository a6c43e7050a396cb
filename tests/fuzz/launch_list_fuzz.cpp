// Whole launch lists through the launcher, with every call that starts, waits for or signals a
// process replaced, against a walk over the list that starts nothing.
// Input: the file.
//
// Each supervisor takes the child's way once, so that the argument vector is built, and is the
// launcher's side from then on; its children end at once. The stop request comes when main waits,
// on main's thread.
#include <dlfcn.h>
#include <errno.h>
#include <json/reader.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "launcher/main.h"
#include "logging/log.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/fake_log_library.h"
#include "tests/support/fake_machine.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wait_until.h"

// See json/json_object.cpp.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

int launcher_main(int argc, char** argv);

namespace {

using Arguments = std::vector<std::string>;

// More threads, or longer vectors, would only make the search slow.
constexpr std::size_t kMostItems = 8;
constexpr long long kMostArguments = 50;

// What a list leads to.
struct Walk
{
    std::multiset<Arguments> execs;     // Of the items that are left at the end.
    std::multiset<Arguments> replaced;  // Of those that a later one of the same name has ended.
    std::size_t nameless = 0;
    bool failed = false;
};

// What the launcher did.
class Seen final : public ILog
{
public:
    void Reserved1() override {}
    void Reserved2() override {}
    __attribute__((format(printf, 3, 0))) void LogV(LOGLEVEL, const char* format,
                                                    va_list arguments) override
    {
        char text[256];
        vsnprintf(text, sizeof text, format, arguments);
        const std::lock_guard<std::mutex> lock(m_mutex);
        nameless += strcmp(text, "[LAUNCHER  ] There is an item has no name.") == 0 ? 1 : 0;
        failures +=
            strcmp(text, "[LAUNCHER  ] Error while parsing saved json string.") == 0 ? 1 : 0;
    }

    void Clear()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        execs.clear();
        nameless = 0;
        failures = 0;
    }

    void Exec(Arguments arguments)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        execs.insert(std::move(arguments));
    }

    // Whether all of `wanted` has been executed.
    bool Includes(const std::multiset<Arguments>& wanted)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::includes(execs.begin(), execs.end(), wanted.begin(), wanted.end());
    }

    std::multiset<Arguments> execs;
    std::size_t nameless = 0;
    std::size_t failures = 0;

private:
    std::mutex m_mutex;
};

Seen g_seen;
Walk g_expected;

std::string TextOf(const Json::Value& value)
{
    return UpToNul(value.asString());
}

// What an item without a program counts as.
const Arguments kNoProgram = {""};

// Nothing for an item that nothing guards against (launcher/child_proc.cpp), or that takes too
// long. Throws what the JSON library throws for one that would end its process.
std::optional<Arguments> ArgumentsOf(const Json::Value& item)
{
    Arguments arguments = {TextOf(item["program"])};
    if (arguments == kNoProgram) {
        return arguments;
    }
    const long long count = static_cast<int>(item["argc"].asInt64());
    if (count < -1 || count > kMostArguments) {
        return std::nullopt;
    }
    for (long long i = 0; i < count; ++i) {
        arguments.push_back(TextOf(item["args"][std::to_string(i)]));
    }
    if (count == -1) {
        arguments.clear();
    }
    return arguments;
}

// Nothing for a list with an item for which ArgumentsOf gives nothing, or with too many. Throws
// what that throws.
std::optional<Walk> Expected(const std::string& text)
{
    Walk walk;
    std::map<std::string, Arguments> items;
    Json::Value list;
    walk.failed = !Json::Reader().parse(text, list, false);
    std::size_t started = 0;
    for (int i = 0; !walk.failed; ++i) {
        const std::string index = std::to_string(i);
        std::string name;
        try {
            if (!list.isMember(index)) {
                break;
            }
            if (!list[index].isMember("name")) {
                ++walk.nameless;
                continue;
            }
            name = TextOf(list[index]["name"]);
        } catch (const Json::Exception&) {
            walk.failed = true;
            break;
        }
        if (++started > kMostItems) {
            return std::nullopt;
        }
        const std::optional<Arguments> arguments = ArgumentsOf(list[index]);
        if (!arguments) {
            return std::nullopt;
        }
        if (items.count(name) != 0) {
            walk.replaced.insert(items[name]);
        }
        items[name] = *arguments;
    }
    for (const auto& entry : items) {
        walk.execs.insert(entry.second);
    }
    return walk;
}

// Every item that is left has taken the child's way once.
void WaitForExecs()
{
    Require(WaitUntil([] { return g_seen.Includes(g_expected.execs); }),
            "every item of the list is executed with its arguments");
}

}  // namespace

extern "C" pid_t fork()
{
    static thread_local bool was_child = false;
    if (was_child) {
        return 1001;
    }
    was_child = true;
    return 0;
}

extern "C" int execv(const char* path, char* const arguments[])
{
    Arguments copies;
    for (int i = 0; arguments[i] != nullptr; ++i) {
        copies.emplace_back(arguments[i]);
    }
    Require(copies.empty() || copies[0] == path, "the program is its own first argument");
    g_seen.Exec(std::move(copies));
    errno = ENOENT;
    return -1;
}

extern "C" pid_t waitpid(pid_t pid, int* wait_status, int)
{
    *wait_status = 0;
    return pid;
}

extern "C" int kill(pid_t, int)
{
    return 0;
}

// The launcher's handler would take the fuzzer's own place.
extern "C" sighandler_t signal(int, sighandler_t)
{
    return SIG_DFL;
}

// The standard descriptors stay open.
extern "C" int close(int descriptor)
{
    static const auto real = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "close"));
    return descriptor <= 2 ? 0 : real(descriptor);
}

// The restart pause, shortened.
extern "C" int nanosleep(const timespec* pause, timespec* rest)
{
    static const auto real = reinterpret_cast<decltype(&nanosleep)>(dlsym(RTLD_NEXT, "nanosleep"));
    const timespec short_pause = {0, std::min(pause->tv_nsec, 100'000L)};
    return real(&short_pause, rest);
}

extern "C" int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    static const auto real =
        reinterpret_cast<decltype(&pthread_cond_wait)>(dlsym(RTLD_NEXT, "pthread_cond_wait"));
    if (condition != g_process_condition.native_handle()) {
        return real(condition, mutex);
    }
    WaitForExecs();
    sigterm_handler(SIGTERM);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TempDirectory folder;
    const std::string content = FuzzInput(data, size).Rest();
    const std::string list = UpToNul(content);
    std::optional<Walk> expected;
    try {
        expected = Expected(list);
    } catch (const Json::Exception&) {
        return -1;  // Some supervisor would end the process.
    }
    if (!expected) {
        return -1;
    }
    expected->execs.erase(kNoProgram);
    expected->replaced.erase(kNoProgram);
    g_expected = *expected;
    g_seen.Clear();
    g_fake_log_library.log = &g_seen;
    g_fake_machine.user = FakeMachine::User{"u", folder.path()};
    logger = nullptr;

    std::string path = folder.Write("list.json", content);
    std::string program = "launcher";
    std::string name = "app";
    char* arguments[] = {program.data(), name.data(), path.data(), nullptr};
    const int status = launcher_main(3, arguments);
    if (!content.empty()) {
        WaitForExecs();
    }
    g_child_map.clear();

    Require(status == (content.empty() || expected->failed ? 0 : 1),
            "the status tells the failure");
    Require(g_seen.failures == (expected->failed && !content.empty() ? 1 : 0),
            "a failure is logged once");
    Require(g_seen.nameless == expected->nameless, "each item without a name is logged once");
    std::multiset<Arguments> rest;
    std::set_difference(g_seen.execs.begin(), g_seen.execs.end(), expected->execs.begin(),
                        expected->execs.end(), std::inserter(rest, rest.begin()));
    Require(std::includes(expected->replaced.begin(), expected->replaced.end(), rest.begin(),
                          rest.end()),
            "nothing else is executed, but for items that were replaced");
    return 0;
}
