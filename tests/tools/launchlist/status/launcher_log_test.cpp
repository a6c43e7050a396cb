#include "tools/launchlist/status/launcher_log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "tests/support/temp_directory.h"

using namespace launchlist;

namespace {

constexpr pid_t kLauncher = 100;
constexpr pid_t kOther = 200;
// The files have real times.
const Milliseconds kNow = static_cast<Milliseconds>(time(nullptr)) * 1000;
const ProcessTimes kProcesses = {{kLauncher, kNow - 10 * 3600000}};

std::string Line(Milliseconds time, pid_t process, const std::string& text,
                 const std::string& level = "ERROR   ")
{
    return FormatTimeStamp(time) + " " + level + " launcher[" + std::to_string(process) + "] " +
           text + "\n";
}

std::string Start(Milliseconds time, const std::string& name, pid_t process = kLauncher)
{
    return Line(time, process, "[LAUNCHER  ] Start to fork " + name, "DEBUG   ");
}

std::string End(Milliseconds time, const std::string& name, pid_t process = kLauncher)
{
    return Line(time, process, "[LAUNCHER  ] " + name + " 7 is killed. ret = 7, status = 9");
}

class LauncherLogTest : public testing::Test
{
protected:
    void Append(const std::string& text) const
    {
        std::ofstream(m_path, std::ios::app | std::ios::binary) << text;
    }

    void Rotate() const
    {
        for (int number = 8; number > 0; --number) {
            std::rename((m_path + "." + std::to_string(number)).c_str(),
                        (m_path + "." + std::to_string(number + 1)).c_str());
        }
        std::rename(m_path.c_str(), (m_path + ".1").c_str());
    }

    // How many ends of "a" the launcher has logged.
    std::size_t Ends() const
    {
        const ProcessRecords* records = m_log.Find(kLauncher);
        return records == nullptr || records->items.count("a") == 0 ? 0
                                                                    : records->items.at("a").ends;
    }

    const TempDirectory m_directory;
    const std::string m_path = m_directory / "qv7log";
    LauncherLog m_log{m_path};
};

}  // namespace

TEST_F(LauncherLogTest, CountsTheEndsOfEachItem)
{
    Append(Start(kNow - 7200001, "a") + End(kNow - 7200000, "a") + Start(kNow - 7199950, "a"));
    Append(End(kNow - 1000, "a") + End(kNow - 900, "b b"));
    m_log.Update(kProcesses, kNow);
    const ProcessRecords* records = m_log.Find(kLauncher);
    ASSERT_NE(records, nullptr);
    EXPECT_TRUE(records->has_starts);
    EXPECT_EQ(records->last_item, "b b");
    const ItemRecords& item = records->items.at("a");
    EXPECT_EQ(item.ends, 2U);
    EXPECT_EQ(item.recent_ends.size(), 1U);
    EXPECT_EQ(item.last_end, kNow - 1000);
    EXPECT_EQ(item.last_start, kNow - 7199950);
    EXPECT_EQ(SignalOf(item.how), 9);
    EXPECT_FALSE(item.is_fork_failure_last);
    EXPECT_EQ(m_log.Error(), "");
    EXPECT_FALSE(m_log.MayLackRecordsSince(kNow - 8000000));
}

TEST_F(LauncherLogTest, KnowsAFailedForkOnlyUntilTheNextRecord)
{
    Append(Line(kNow, kLauncher, "[LAUNCHER  ] Failed to fork a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_TRUE(m_log.Find(kLauncher)->items.at("a").is_fork_failure_last);
    EXPECT_EQ(m_log.Find(kLauncher)->items.at("a").failed_fork, kNow);
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_FALSE(m_log.Find(kLauncher)->items.at("a").is_fork_failure_last);
}

TEST_F(LauncherLogTest, IgnoresEarlierProcessesOfTheSameId)
{
    Append(End(kNow - 11 * 3600000, "a") + End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(Ends(), 1U);
}

TEST_F(LauncherLogTest, ForgetsProcessesThatAreNotAskedFor)
{
    Append(End(kNow - 60000, "a", kOther) + End(kNow - 100, "b", kOther));
    m_log.Update(kProcesses, kNow);
    // It may have been forked after the processes were listed.
    ASSERT_NE(m_log.Find(kOther), nullptr);
    EXPECT_EQ(m_log.Find(kOther)->items.size(), 1U);
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(m_log.Find(kOther), nullptr);
}

TEST_F(LauncherLogTest, KeepsWhatAProcessWroteBeforeItWasListed)
{
    Append(End(kNow - 100, "a", kOther));
    m_log.Update(kProcesses, kNow);
    Append(End(kNow, "a", kOther));
    m_log.Update({{kOther, kNow - 1000}}, kNow);
    EXPECT_EQ(m_log.Find(kOther)->items.at("a").ends, 2U);
}

TEST_F(LauncherLogTest, ReadsOnlyWhatWasAdded)
{
    const std::string line = End(kNow, "a");
    Append(line + line.substr(0, 30));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(Ends(), 1U);
    Append(line.substr(30));
    m_log.Update(kProcesses, kNow);
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(Ends(), 2U);
}

TEST_F(LauncherLogTest, MissesNoRecordInARotation)
{
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    for (int round = 0; round < 3; ++round) {
        Append(End(kNow, "a"));
        Rotate();
        Append(End(kNow, "a"));
        Rotate();
        Append(End(kNow, "a"));
        m_log.Update(kProcesses, kNow);
        EXPECT_EQ(Ends(), 1U + 3U * (static_cast<std::size_t>(round) + 1));
    }
    EXPECT_EQ(m_log.Error(), "");
}

TEST_F(LauncherLogTest, ReadsOldFilesFirst)
{
    Append(End(kNow - 2000, "a"));
    Rotate();
    Append(Start(kNow - 1000, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(m_log.Find(kLauncher)->items.at("a").last_start, kNow - 1000);
    EXPECT_EQ(Ends(), 1U);
}

TEST_F(LauncherLogTest, ContinuesWithALogThatReplacedARemovedOne)
{
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    unlink(m_path.c_str());
    m_log.Update(kProcesses, kNow);
    EXPECT_NE(m_log.Error(), "");
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(m_log.Error(), "");
    EXPECT_EQ(Ends(), 2U);
}

TEST_F(LauncherLogTest, StartsAgainInATruncatedLog)
{
    Append(End(kNow, "a") + End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    ASSERT_EQ(truncate(m_path.c_str(), 0), 0);
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(Ends(), 3U);
}

TEST_F(LauncherLogTest, SaysWhyItCannotBeRead)
{
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(m_log.Error(), "No such file or directory");
    EXPECT_EQ(m_log.Find(kLauncher), nullptr);
}

TEST_F(LauncherLogTest, MayLackRecordsThatWereRotatedAwayOrLost)
{
    Append(End(kNow - 1000, "a"));
    Rotate();
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_FALSE(m_log.MayLackRecordsSince(kNow - 1000));
    EXPECT_TRUE(m_log.MayLackRecordsSince(kNow - 2000));
    Append(Line(kNow, kLauncher, "[QV7LOG    ] 3 records were lost"));
    m_log.Update(kProcesses, kNow);
    EXPECT_TRUE(m_log.MayLackRecordsSince(kNow));
    EXPECT_FALSE(m_log.MayLackRecordsSince(kNow + 1));
}

TEST_F(LauncherLogTest, MayLackRecordsWhereALineIsTorn)
{
    Append(End(kNow - 1000, "a") + "torn\n" + End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_TRUE(m_log.MayLackRecordsSince(kNow - 1000));
    EXPECT_EQ(Ends(), 2U);
}

TEST_F(LauncherLogTest, MayLackRecordsThatAnUnreadableOldFileHolds)
{
    Append("torn\n" + End(kNow - 5000000, "a"));
    Rotate();
    Rotate();
    // A directory, because the superuser may read every file.
    const std::string old = m_path + ".1";
    ASSERT_EQ(mkdir(old.c_str(), 0700), 0);
    const timeval changed = {static_cast<time_t>(kNow / 1000 - 4000), 0};
    const timeval times[2] = {changed, changed};
    ASSERT_EQ(utimes(old.c_str(), times), 0);
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(Ends(), 2U);
    EXPECT_TRUE(m_log.MayLackRecordsSince(kNow - 4000000));
    EXPECT_FALSE(m_log.MayLackRecordsSince(kNow - 3998000));
}

TEST_F(LauncherLogTest, MayLackRecordsThatAnOldFileHoldsWhichCannotBeOpened)
{
    ASSERT_EQ(symlink("qv7log.1", (m_path + ".1").c_str()), 0);
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(m_log.Error(), "");
    EXPECT_TRUE(m_log.MayLackRecordsSince(kNow)) << "nor does its time of change say which";
    EXPECT_FALSE(m_log.MayLackRecordsSince(kNow + 1));
}

TEST_F(LauncherLogTest, SkipsOldFilesFromBeforeEveryProcess)
{
    Append(End(kNow, "a"));
    Rotate();
    const timeval times[2] = {{1000000, 0}, {1000000, 0}};
    ASSERT_EQ(utimes((m_path + ".1").c_str(), times), 0);
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(Ends(), 1U) << "the old file's time of change says that it is of no interest";
    EXPECT_FALSE(m_log.MayLackRecordsSince(kNow - 10 * 3600000));
}

TEST_F(LauncherLogTest, IsNotMisledByHostileLines)
{
    Append(End(kNow, "a 9 is killed. ret = 9, status = 9"));
    Append(Line(kNow, kLauncher, "[LAUNCHER  ] Start to fork x"));  // Not at DEBUG.
    Append(std::string(3U << 20U, 'x') + "\n" + std::string("\0\n\n", 3));
    Append(Line(kNow, kLauncher, "launcher[100] [LAUNCHER  ] a 7 is killed. ret = 7, status = 9x"));
    Append(Line(kNow, 1000, "[LAUNCHER  ] a 7 is killed. ret = 7, status = 9"));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(Ends(), 0U);
    ASSERT_NE(m_log.Find(kLauncher), nullptr);
    EXPECT_FALSE(m_log.Find(kLauncher)->has_starts);
    EXPECT_EQ(m_log.Find(kLauncher)->items.size(), 1U);
    Append(End(kNow, "a"));
    m_log.Update(kProcesses, kNow);
    EXPECT_EQ(Ends(), 1U);
}
