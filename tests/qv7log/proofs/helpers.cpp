#include "tests/qv7log/proofs/helpers.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <sstream>

bool WaitFor(pid_t child, int& status, Clock::time_point deadline)
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

bool WaitForAll(std::vector<pid_t>& children, seconds limit)
{
    const Clock::time_point deadline = Clock::now() + limit;
    bool succeeded = true;
    for (const pid_t child : children) {
        int status = 0;
        succeeded = WaitFor(child, status, deadline) && status == 0 && succeeded;
    }
    children.clear();
    return succeeded;
}

Archive::Archive(std::string log, std::string directory)
    : m_log(std::move(log)), m_directory(std::move(directory)), m_shared(Shared<State>())
{
    mkdir(m_directory.c_str(), 0700);
    m_process = Fork([this] { Run(); });
}

Archive::~Archive()
{
    m_shared->stop = true;
}

std::string Archive::WaitForFiles(int files) const
{
    const Clock::time_point deadline = Clock::now() + kHang;
    while (m_shared->moved < files) {
        if (Clock::now() > deadline) {
            return "old files: " + std::to_string(m_shared->moved) + " instead of " +
                   std::to_string(files) + "\n";
        }
        std::this_thread::sleep_for(milliseconds(1));
    }
    return "";
}

Content Archive::Finish()
{
    m_shared->stop = true;
    int status = 0;
    WaitFor(m_process, status);
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(m_directory)) {
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

void Archive::Run()
{
    while (!m_shared->stop && getppid() != 1) {
        const int lock = open((m_log + ".lock").c_str(), O_RDWR | O_CLOEXEC);
        struct flock region = {};
        region.l_type = F_WRLCK;
        if (lock >= 0 && fcntl(lock, F_SETLKW, &region) == 0) {
            MoveOldFiles();
        }
        close(lock);
        std::this_thread::sleep_for(milliseconds(2));
    }
}

void Archive::MoveOldFiles()
{
    for (const std::string& file : OldFiles(m_log)) {
        char name[32];
        snprintf(name, sizeof name, "/%09d", m_shared->moved.load());
        if (rename(file.c_str(), (m_directory + name).c_str()) == 0) {
            ++m_shared->moved;
        }
    }
}

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

std::string CheckNumbers(const Content& content, const std::map<int, int>& written, int more)
{
    std::map<int, int> next;
    std::ostringstream wrong;
    for (const qv7log::Record& record : content.records) {
        int writer = 0;
        int number = 0;
        if (!ReadNumber(record, writer, number)) {
            wrong << "no writer wrote this record: " << record.text << "\n";
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

std::string CheckKeptOrCounted(const Content& content, const std::map<int, int>& written)
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
            return "no writer wrote this record: " + record.text;
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
    std::printf("  %ld records, %ld kept, %ld counted as lost, %zu torn\n", all, kept, lost,
                content.others.size());
    return kept + lost == all ? "" : "records are neither kept nor counted";
}

Writers::Writers(ILog* log, int threads, microseconds pause)
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

std::map<int, int> Writers::Finish()
{
    m_stop = true;
    std::map<int, int> written;
    for (std::size_t i = 0; i < m_threads.size(); ++i) {
        m_threads[i].join();
        written[static_cast<int>(i)] = m_written[i];
    }
    return written;
}
