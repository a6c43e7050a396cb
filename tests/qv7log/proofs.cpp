#include "tests/qv7log/proofs.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <sstream>
#include <system_error>
#include <thread>
#include <tuple>
#include <vector>

#include "qv7log/limits.h"
#include "qv7log/record.h"
#include "qv7log/time_stamp.h"
#include "tests/qv7log/read_log.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kHang{30};
constexpr seconds kLongHang{300};  // of a process that logs as much as the proof is asked for

// A value that forked processes share.
template <typename Value>
Value* Shared()
{
    void* const memory =
        mmap(nullptr, sizeof(Value), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANON, -1, 0);
    return memory == MAP_FAILED ? nullptr : new (memory) Value();
}

// Waits until `child` has ended; false, and it is killed, if it has not at the deadline.
bool WaitFor(pid_t child, int& status, Clock::time_point deadline = Clock::now() + kHang)
{
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return false;
        }
        std::this_thread::sleep_for(microseconds(50));
    }
    return true;
}

// Waits until all `children` have ended, and forgets them; true if they did so well. What is left
// of them after the limit is killed.
bool WaitForAll(std::vector<pid_t>& children, seconds limit = kHang)
{
    const Clock::time_point deadline = Clock::now() + limit;
    bool well = true;
    for (const pid_t child : children) {
        int status = 0;
        well = WaitFor(child, status, deadline) && status == 0 && well;
    }
    children.clear();
    return well;
}

// Throws where there is no child: its id, -1, would stand for every process when it is killed.
template <typename Body>
pid_t Fork(Body body)
{
    const pid_t child = fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        body();
        _exit(0);
    }
    return child;
}

// Carries the old files of a log away as long as it lives, in their order, so that none is dropped.
// A process of its own, since the rotation lock is a process's.
class Archive
{
public:
    Archive(std::string log, std::string folder)
        : m_log(std::move(log)), m_folder(std::move(folder)), m_shared(Shared<State>())
    {
        mkdir(m_folder.c_str(), 0700);
        m_process = Fork([this] { Run(); });
    }

    ~Archive() { m_shared->stop = true; }

    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    // Waits until `files` old files have been carried away altogether; says so if they are not.
    std::string WaitForFiles(int files) const
    {
        const Clock::time_point deadline = Clock::now() + kHang;
        while (m_shared->carried < files) {
            if (Clock::now() > deadline) {
                return "old files: " + std::to_string(m_shared->carried) + " instead of " +
                       std::to_string(files) + "\n";
            }
            std::this_thread::sleep_for(milliseconds(1));
        }
        return "";
    }

    // Carries the rest away too and gives all that was ever logged.
    Content Finish()
    {
        m_shared->stop = true;
        int status = 0;
        WaitFor(m_process, status);
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder)) {
            files.push_back(entry.path().string());
        }
        std::sort(files.begin(), files.end());
        Content content;
        for (const std::string& file : files) {
            ReadInto(content, file);
        }
        const Content rest = ReadLog(m_log);
        content.records.insert(content.records.end(), rest.records.begin(), rest.records.end());
        content.others.insert(content.others.end(), rest.others.begin(), rest.others.end());
        std::printf("  %zu files, %zu records, %zu torn\n", files.size(), content.records.size(),
                    content.others.size());
        return content;
    }

private:
    struct State
    {
        std::atomic<bool> stop{false};
        std::atomic<int> carried{0};
    };

    void Run()
    {
        while (!m_shared->stop && getppid() != 1) {
            const int lock = open((m_log + ".lock").c_str(), O_RDWR | O_CLOEXEC);
            struct flock region = {};
            region.l_type = F_WRLCK;
            if (lock >= 0 && fcntl(lock, F_SETLKW, &region) == 0) {
                CarryAway();
            }
            close(lock);
            std::this_thread::sleep_for(milliseconds(2));
        }
    }

    void CarryAway()
    {
        for (const std::string& file : OldFiles(m_log)) {
            char name[32];
            snprintf(name, sizeof name, "/%09d", m_shared->carried.load());
            if (rename(file.c_str(), (m_folder + name).c_str()) == 0) {
                ++m_shared->carried;
            }
        }
    }

    const std::string m_log;
    const std::string m_folder;
    State* const m_shared;
    pid_t m_process = 0;
};

// Records of this form are told apart: "writer 3 number 17" is the 17th of writer 3.
void LogNumber(ILog* log, int writer, int number)
{
    Log(log, LOGLEVEL_ERROR, "[PROOF     ] writer %d number %d %.*s", writer, number, number % 50,
        "..................................................");
}

bool ReadNumber(const qv7log::Record& record, int& writer, int& number)
{
    int end = 0;
    if (sscanf(record.text.c_str(), "[PROOF     ] writer %d number %d %n", &writer, &number,
               &end) != 2) {
        return false;
    }
    return record.text.substr(static_cast<std::size_t>(end)) ==
           std::string(static_cast<std::size_t>(number % 50), '.');
}

// Checks that the records of each writer are there once and in order, from 0 up to `written` of it.
// A killed writer may have written one more than it could say.
std::string CheckNumbers(const Content& content, const std::map<int, int>& written, int more = 0)
{
    std::map<int, int> next;
    std::ostringstream wrong;
    for (const qv7log::Record& record : content.records) {
        int writer = 0;
        int number = 0;
        if (!ReadNumber(record, writer, number)) {
            wrong << "a record that nobody wrote: " << record.text << "\n";
        } else if (number != next[writer]++) {
            wrong << "writer " << writer << ": " << number << " instead of " << next[writer] - 1
                  << "\n";
            next[writer] = number + 1;
        }
    }
    for (const auto& [writer, count] : written) {
        if (next[writer] < count || next[writer] > count + more) {
            wrong << "writer " << writer << ": " << next[writer] << " of " << count << "\n";
        }
    }
    return wrong.str().substr(0, 2000);
}

std::string CheckWhole(const Content& content)
{
    return content.others.empty() ? "" : "torn: " + content.others[0] + "\n";
}

// Threads that log numbers, each as the writer of its index, until they are stopped.
class Writers
{
public:
    Writers(ILog* log, int threads, microseconds pause)
        : m_written(static_cast<std::size_t>(threads))
    {
        for (int writer = 0; writer < threads; ++writer) {
            m_threads.emplace_back([this, log, writer, pause] {
                int& written = m_written[static_cast<std::size_t>(writer)];
                while (!m_stop) {
                    LogNumber(log, writer, written++);
                    std::this_thread::sleep_for(pause);
                }
            });
        }
    }

    // What each of them has written.
    std::map<int, int> Finish()
    {
        m_stop = true;
        std::map<int, int> written;
        for (std::size_t i = 0; i < m_threads.size(); ++i) {
            m_threads[i].join();
            written[static_cast<int>(i)] = m_written[i];
        }
        return written;
    }

private:
    std::atomic<bool> m_stop{false};
    std::vector<int> m_written;
    std::vector<std::thread> m_threads;
};

constexpr int kChildWriter = 1000;

// The log has rotated once in so many forks or removals, or the next one waits for it: what is
// proven is proven of a log that rotates. A log fills up many times while so many are forked; it
// seldom does while so many are removed.
constexpr int kForksAFile = 500;
constexpr int kRemovalsAFile = 20;

}  // namespace

std::string ForksWhileRotating(const std::string& folder, int forks)
{
    const std::string path = folder + "/log";
    ILog* const log = StartLog(path);
    Archive archive(path, folder + "/archive");
    Writers writers(log, 8, microseconds(100));
    std::vector<pid_t> children;
    std::string wrong;
    for (int i = 0; i < forks && wrong.empty(); ++i) {
        children.push_back(Fork([log, i] { LogNumber(log, kChildWriter + i, 0); }));
        if (children.size() == 8 && !WaitForAll(children)) {
            wrong = "a child hangs or has crashed\n";
        }
        wrong += archive.WaitForFiles(i / kForksAFile);
    }
    if (!WaitForAll(children)) {
        wrong += "a child hangs or has crashed\n";
    }
    std::map<int, int> written = writers.Finish();
    if (!wrong.empty()) {
        return wrong;
    }
    for (int i = 0; i < forks; ++i) {
        written[kChildWriter + i] = 1;
    }
    const Content content = archive.Finish();
    return CheckWhole(content) + CheckNumbers(content, written);
}

std::string ProcessesRotating(const std::string& folder, int records)
{
    constexpr int kProcesses = 8;
    constexpr int kThreads = 4;
    const std::string path = folder + "/log";
    if (StartLog(path) == nullptr) {
        return "no log";
    }
    Archive archive(path, folder + "/archive");
    std::vector<pid_t> processes;
    std::map<int, int> written;
    for (int process = 0; process < kProcesses; ++process) {
        processes.push_back(Fork([&] {
            ILog* const log = StartLog(path);
            std::vector<std::thread> threads;
            for (int i = 0; i < kThreads; ++i) {
                threads.emplace_back([=] {
                    for (int number = 0; number < records; ++number) {
                        LogNumber(log, process * kThreads + i, number);
                    }
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
        }));
        for (int i = 0; i < kThreads; ++i) {
            written[process * kThreads + i] = records;
        }
    }
    if (!WaitForAll(processes, kLongHang)) {
        return "a process hangs or has crashed\n";
    }
    const std::string wrong = archive.WaitForFiles(1);
    const Content content = archive.Finish();
    return wrong + CheckWhole(content) + CheckNumbers(content, written);
}

namespace {

// Checks that each record is there once and in its writer's order, or counted as lost. Behind
// `written`, the records of Writers, stands one of kLastWriter, before which all losses are told.
constexpr int kLastWriter = 500;

std::string CheckKeptOrTold(const Content& content, const std::map<int, int>& written)
{
    long kept = 0;
    long lost = 0;
    std::map<int, int> last;
    for (const qv7log::Record& record : content.records) {
        int writer = 0;
        int number = 0;
        unsigned count = 0;
        if (sscanf(record.text.c_str(), "[QV7LOG    ] %u records were lost", &count) == 1) {
            lost += count;
        } else if (!ReadNumber(record, writer, number)) {
            return "a record that nobody wrote: " + record.text;
        } else if (last.count(writer) != 0 && number <= last[writer]) {
            return "out of order, or twice: " + record.text;
        } else {
            last[writer] = number;
            ++kept;
        }
    }
    long all = 1;
    for (const auto& [writer, count] : written) {
        all += count;
    }
    std::printf("  %ld records, %ld kept, %ld told as lost, %zu torn\n", all, kept, lost,
                content.others.size());
    return kept + lost == all ? "" : "records are neither kept nor counted";
}

}  // namespace

std::string DiskFull(const std::string& folder, int rounds)
{
    const std::string path = folder + "/log";
    const std::string ballast = folder + "/ballast";
    ILog* const log = StartLog(path);
    const auto fill = [&] {
        const std::string block(4096, 'x');
        const int file = open(ballast.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        while (write(file, block.data(), block.size()) > 0) {
        }
        close(file);
    };
    Writers writers(log, 4, microseconds(500));
    for (int i = 0; i < rounds; ++i) {
        fill();
        std::this_thread::sleep_for(milliseconds(40));  // this long the disk stays full
        fill();
        unlink(ballast.c_str());
        std::this_thread::sleep_for(milliseconds(10));
    }
    const std::map<int, int> written = writers.Finish();
    LogNumber(log, kLastWriter, 0);
    const Content content = ReadLog(path);
    if (std::none_of(content.records.begin(), content.records.end(), [](const qv7log::Record& r) {
            return r.text.rfind("[QV7LOG    ]", 0) == 0;
        })) {
        return "the disk was never full";
    }
    return CheckKeptOrTold(content, written);
}

namespace {

// A file that was removed, and the time stamp that nothing in it may exceed.
struct Removed
{
    int file;
    std::string latest;
};

std::string StampIn(milliseconds delay)
{
    timespec time;
    clock_gettime(CLOCK_REALTIME, &time);
    time.tv_nsec += static_cast<long>(delay.count()) * 1000000;
    time.tv_sec += time.tv_nsec / 1000000000;
    time.tv_nsec %= 1000000000;
    char stamp[qv7log::kTimeStampSize];
    qv7log::PutTimeStamp(stamp, time);
    return {stamp, sizeof stamp};
}

// Adds what the removed file holds to `content`.
std::string ReadRemoved(const Removed& removed, Content& content)
{
    std::string text(static_cast<std::size_t>(lseek(removed.file, 0, SEEK_END)), '\0');
    if (pread(removed.file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        return "a removed file cannot be read";
    }
    close(removed.file);
    std::string_view rest = text;
    qv7log::Entry entry;
    while (qv7log::NextEntry(rest, entry)) {
        if (!entry.is_record) {
            return "torn in a removed file: " + std::string(entry.raw);
        }
        if (entry.record.time > removed.latest) {
            return "too late, since " + removed.latest + ": " + std::string(entry.raw);
        }
        content.records.push_back(entry.record);
    }
    return "";
}

}  // namespace

std::string RemovedUnderLoad(const std::string& folder, int removals)
{
    const std::string path = folder + "/log";
    ILog* const log = StartLog(path);
    Archive archive(path, folder + "/archive");
    Writers writers(log, 8, microseconds(50));
    std::vector<Removed> removed;
    std::string wrong;
    for (int i = 0; i < removals && wrong.empty(); ++i) {
        // Under another name first: a rotation could put another file between opening and removing.
        const std::string aside = folder + "/aside";
        if (rename(path.c_str(), aside.c_str()) == 0) {
            const int file = open(aside.c_str(), O_RDONLY | O_CLOEXEC);
            unlink(aside.c_str());
            removed.push_back({file, StampIn(milliseconds(1000))});
        }
        std::this_thread::sleep_for(milliseconds(2));
        wrong += archive.WaitForFiles((i + 1) / kRemovalsAFile);
    }
    const std::map<int, int> written = writers.Finish();
    if (!wrong.empty()) {
        return wrong;
    }
    LogNumber(log, kLastWriter, 0);
    Content content = archive.Finish();
    wrong = CheckWhole(content);
    for (const Removed& one : removed) {
        wrong += ReadRemoved(one, content);
    }
    // Removed files have no place in the order: sort by number.
    std::sort(content.records.begin(), content.records.end(),
              [](const qv7log::Record& a, const qv7log::Record& b) {
                  int writers_of[2] = {-1, -1};  // that of what only tells of losses
                  int numbers[2] = {};
                  ReadNumber(a, writers_of[0], numbers[0]);
                  ReadNumber(b, writers_of[1], numbers[1]);
                  return std::tie(writers_of[0], numbers[0]) < std::tie(writers_of[1], numbers[1]);
              });
    std::printf("  %zu removals\n", removed.size());
    return wrong + CheckKeptOrTold(content, written);
}

namespace {

constexpr int kKilledThreads = 4;

struct Progress
{
    std::atomic<int> completed[kKilledThreads + 1] = {};  // the last is the forked child's
    std::atomic<bool> stop{false};
};

// Logs numbers as `writer`, with a note of each that is completed.
void LogNoted(ILog* log, int writer, std::atomic<int>& completed, const std::atomic<bool>& stop)
{
    while (!stop) {
        LogNumber(log, writer, completed);
        ++completed;
    }
}

// The process that is killed. Its child goes on, and holds `alive` open as long as it does.
void RunUntilKilled(const std::string& path, int first_writer, Progress& progress)
{
    ILog* const log = StartLog(path);
    std::vector<std::thread> threads;
    for (int i = 0; i < kKilledThreads; ++i) {
        threads.emplace_back(
            [&, i] { LogNoted(log, first_writer + i, progress.completed[i], progress.stop); });
    }
    std::this_thread::sleep_for(milliseconds(1));
    Fork([&] {
        LogNoted(log, first_writer + kKilledThreads, progress.completed[kKilledThreads],
                 progress.stop);
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

std::string KilledWhileRotating(const std::string& folder, int rounds)
{
    constexpr int kWitness = 1;
    const std::string path = folder + "/log";
    if (StartLog(path) == nullptr) {
        return "no log";
    }
    Archive archive(path, folder + "/archive");
    auto* const witness = Shared<Progress>();
    const pid_t witness_process = Fork([&] {
        ILog* const log = StartLog(path);
        while (!witness->stop) {
            LogNumber(log, kWitness, witness->completed[0]++);
            std::this_thread::sleep_for(microseconds(100));
        }
    });
    std::mt19937 random(3);
    std::map<int, int> written;
    std::string wrong;
    for (int round = 0; round < rounds; ++round) {
        auto* const progress = Shared<Progress>();
        int alive[2];
        if (pipe(alive) != 0) {
            return "no pipe";
        }
        const int first_writer = 10 + round * (kKilledThreads + 1);
        const pid_t process = Fork([&] {
            close(alive[0]);
            RunUntilKilled(path, first_writer, *progress);
        });
        close(alive[1]);
        std::this_thread::sleep_for(microseconds(3000 + random() % 20000));
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);

        // The child of the killed process logs on, and the witness rotates: the log stays small.
        const int before = witness->completed[0];
        const Clock::time_point deadline = Clock::now() + kHang;
        struct stat status = {};
        do {
            std::this_thread::sleep_for(milliseconds(1));
            stat(path.c_str(), &status);
        } while (
            (witness->completed[0] < before + 10 || status.st_size > 2 * qv7log::kRotateSize) &&
            Clock::now() < deadline);
        if (Clock::now() >= deadline) {
            wrong = "nobody rotates after round " + std::to_string(round) + "\n";
        }
        progress->stop = true;
        char byte;
        while (read(alive[0], &byte, 1) < 0 && errno == EINTR) {
        }
        close(alive[0]);
        for (int i = 0; i <= kKilledThreads; ++i) {
            written[first_writer + i] = progress->completed[i];
        }
        munmap(progress, sizeof *progress);
        if (!wrong.empty()) {
            break;
        }
    }
    witness->stop = true;
    int status = 0;
    if (!WaitFor(witness_process, status)) {
        wrong += "the witness hangs\n";
    }
    written[kWitness] = witness->completed[0];
    return wrong + CheckNumbers(archive.Finish(), written, 1);
}

namespace {

std::string RandomText(std::mt19937& random)
{
    const char* const pieces[] = {"\\",
                                  "\n",
                                  "Z",
                                  "2026-11-21T02:26:11.123",
                                  "Z ERROR    l[1] x",
                                  "\xe2\x80\xa8",
                                  "\xc2\x85",
                                  "\xc3",
                                  "\xa9",
                                  "\xf0\x9f\x98\x80",
                                  "\xed\xa0",
                                  "\x80",
                                  "26-11-21T02:26:11.123Z",
                                  "20",
                                  "\\<1 bytes cut>",
                                  "-11-21T02:26:11.123Z",
                                  " ",
                                  "[",
                                  "]",
                                  "x20",
                                  "\x1b"};
    std::string text;
    for (std::size_t count = random() % 12; count != 0; --count) {
        const std::size_t piece = random() % (std::size(pieces) + 2);
        if (piece < std::size(pieces)) {
            text += pieces[piece];
        } else {
            text += static_cast<char>(random());
        }
    }
    return text.substr(0, qv7log::kMaxName);
}

std::string RandomRecord(const std::string& name, const std::string& text, std::size_t cut)
{
    char escaped[qv7log::kMaxName * qv7log::kEscapedSize];
    const auto size = static_cast<std::size_t>(qv7log::PutName(escaped, name) - escaped);
    const qv7log::Heading heading = {{1795228811, 0}, LOGLEVEL_ERROR, {escaped, size}, 4711};
    char line[qv7log::kMaxFraming + qv7log::kMaxName * qv7log::kEscapedSize];
    char* end = qv7log::PutText(qv7log::PutHeading(line, heading), text);
    end = cut != 0 ? qv7log::PutCutMark(end, cut) : end;
    return {line, end};
}

bool IsControl(char c)
{
    return (c >= 0 && c < 0x20) || c == 0x7f;
}

}  // namespace

std::string EscapingRoundTrips(const std::string&, int count)
{
    std::mt19937 random(7);
    for (int i = 0; i < count; ++i) {
        const std::string name = RandomText(random);
        const std::string text = RandomText(random);
        const std::size_t cut = random() % 2 != 0 ? random() : 0;
        const std::string line = RandomRecord(name, text, cut);
        if (std::any_of(line.begin(), line.end(), IsControl)) {
            return "unsafe: " + line;
        }
        const std::string log = line + "\n";
        std::string_view rest = log;
        qv7log::Entry entry;
        if (!qv7log::NextEntry(rest, entry) || !entry.is_record || !rest.empty() ||
            entry.record.text != text || entry.record.name != name || entry.record.cut != cut) {
            return "not read back: " + line;
        }
    }
    return "";
}
