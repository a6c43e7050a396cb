// Runs the launcher on whole launch lists, with every call that starts, waits for or signals a
// process replaced, and compares what it does with an independent reading of the list. The input is
// the file.
//
// The first fork of each supervisor returns 0, so that it builds the argument vector as the child
// does; later ones return a process id, and waitpid reports at once that the child has ended. When
// main waits, the stop request runs on main's thread.
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

// More threads or longer vectors would only slow the search down.
constexpr std::size_t kMaxItems = 8;
constexpr long long kMaxArguments = 50;

// What the launcher must do with a list.
struct Expectation
{
    std::multiset<Arguments> execs;     // Of the items that remain at the end.
    std::multiset<Arguments> replaced;  // Of the items that a later one of the same name has ended.
    std::size_t nameless = 0;
    bool failed = false;
};

// What the launcher did.
class Observation final : public ILog
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

Observation g_observed;
Expectation g_expected;

std::string TextOf(const Json::Value& value)
{
    return UpToNul(value.asString());
}

// Represents an item without a program.
const Arguments kNoProgram = {""};

// The arguments of an item. std::nullopt if its count is undefined or too large for the fuzzer;
// throws the JSON library's exception if the item would end its process.
std::optional<Arguments> ArgumentsOf(const Json::Value& item)
{
    Arguments arguments = {TextOf(item["program"])};
    if (arguments == kNoProgram) {
        return arguments;
    }
    const long long count = static_cast<int>(item["argc"].asInt64());
    if (count < -1 || count > kMaxArguments) {
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

// What the launcher must do with the list `text`. std::nullopt if it has too many items, or one for
// which ArgumentsOf returns std::nullopt; throws what ArgumentsOf throws.
std::optional<Expectation> Expected(const std::string& text)
{
    Expectation expectation;
    std::map<std::string, Arguments> items;
    Json::Value list;
    expectation.failed = !Json::Reader().parse(text, list, false);
    std::size_t started = 0;
    for (int i = 0; !expectation.failed; ++i) {
        const std::string index = std::to_string(i);
        std::string name;
        try {
            if (!list.isMember(index)) {
                break;
            }
            if (!list[index].isMember("name")) {
                ++expectation.nameless;
                continue;
            }
            name = TextOf(list[index]["name"]);
        } catch (const Json::Exception&) {
            expectation.failed = true;
            break;
        }
        if (++started > kMaxItems) {
            return std::nullopt;
        }
        const std::optional<Arguments> arguments = ArgumentsOf(list[index]);
        if (!arguments) {
            return std::nullopt;
        }
        if (items.count(name) != 0) {
            expectation.replaced.insert(items[name]);
        }
        items[name] = *arguments;
    }
    for (const auto& entry : items) {
        expectation.execs.insert(entry.second);
    }
    return expectation;
}

// Waits until every remaining item has been executed once.
void WaitForExecs()
{
    Require(WaitUntil([] { return g_observed.Includes(g_expected.execs); }),
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
    Require(copies.empty() || copies[0] == path, "the program is argument 0");
    g_observed.Exec(std::move(copies));
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

// The launcher's handler would replace the fuzzer's own.
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
    static const TempDirectory directory;
    const std::string content = FuzzInput(data, size).Rest();
    const std::string list = UpToNul(content);
    std::optional<Expectation> expected;
    try {
        expected = Expected(list);
    } catch (const Json::Exception&) {
        return -1;  // A supervisor would end the process.
    }
    if (!expected) {
        return -1;
    }
    expected->execs.erase(kNoProgram);
    expected->replaced.erase(kNoProgram);
    g_expected = *expected;
    g_observed.Clear();
    g_fake_log_library.log = &g_observed;
    g_fake_machine.user = FakeMachine::User{"u", directory.path()};
    logger = nullptr;

    std::string path = directory.Write("list.json", content);
    std::string program = "launcher";
    std::string name = "app";
    char* arguments[] = {program.data(), name.data(), path.data(), nullptr};
    const int status = launcher_main(3, arguments);
    if (!content.empty()) {
        WaitForExecs();
    }
    g_child_map.clear();

    Require(status == (content.empty() || expected->failed ? 0 : 1),
            "the exit status is 0 exactly after a failure");
    Require(g_observed.failures == (expected->failed && !content.empty() ? 1 : 0),
            "a failure is logged once");
    Require(g_observed.nameless == expected->nameless, "each item without a name is logged once");
    std::multiset<Arguments> rest;
    std::set_difference(g_observed.execs.begin(), g_observed.execs.end(), expected->execs.begin(),
                        expected->execs.end(), std::inserter(rest, rest.begin()));
    Require(std::includes(expected->replaced.begin(), expected->replaced.end(), rest.begin(),
                          rest.end()),
            "nothing else is executed, except items that were replaced");
    return 0;
}
