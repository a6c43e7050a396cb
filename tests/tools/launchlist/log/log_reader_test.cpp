#include "tools/launchlist/log/log_reader.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/next_descriptor.h"
#include "tests/tools/launchlist/log/report_on.h"

using namespace launchlist;

TEST(ReadLogs, FindsRotatedFilesAndReadsThemInOrder)
{
    const TempDirectory directory;
    const std::string path = directory.Write(
        "qv7log", LogText().Start(4050, kLauncher, "a").End(5050, kLauncher, "a", 203, 0).Text());
    directory.Write("qv7log.1", LogText().End(4000, kLauncher, "a", 202, 0).Text());
    directory.Write("qv7log.2", LogText()
                                    .Start(0, kLauncher, "a")
                                    .End(1000, kLauncher, "a", 201, 0)
                                    .Start(1050, kLauncher, "a")
                                    .Text());
    directory.Write("qv7log.lock", "not a log");
    // A run that spans two files is one run; naming a file twice does not count it twice.
    const Report report = MakeReport({path, directory / "qv7log.1"}, {});
    ASSERT_EQ(report.files.size(), 3U);
    EXPECT_EQ(report.files[0].path, directory / "qv7log.2");
    EXPECT_EQ(report.files[2].path, path);
    EXPECT_EQ(report.unread, 0U);
    const ItemReport& item = ItemOf(report, "a");
    EXPECT_EQ(item.starts, 3U);
    EXPECT_EQ(item.ends, 3U);
    EXPECT_EQ(item.unknown_runs, 0U);
    EXPECT_EQ(item.longest, 2950);
}

TEST(ReadLogs, ReadsOldFilesNumbered1To99)
{
    const TempDirectory directory;
    const std::string path = directory.Write("qv7log", "");
    for (const char* number : {"0", "1", "99", "100"}) {
        directory.Write(std::string("qv7log.") + number, "");
    }
    std::vector<std::string> read;
    for (const LogFile& file : MakeReport({path}, {}).files) {
        read.push_back(file.path);
    }
    EXPECT_EQ(read,
              (std::vector<std::string>{directory / "qv7log.99", directory / "qv7log.1", path}));
}

TEST(ReadLogs, IdentifiesAFileThatItCannotOpen)
{
    const TempDirectory directory;
    const std::string path = directory.Write("qv7log", "");
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    // Without a free descriptor, not even the superuser can open it.
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    LogSink sink;
    sink.on_unreadable = [](const std::string&, const std::string&) {};
    const std::vector<LogFile> files = ReadLogs({path}, sink);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    for (const LogFile& file : files) {
        if (file.path == path) {
            EXPECT_NE(file.error, "");
            EXPECT_TRUE(file.has_id);
            EXPECT_EQ(file.id, FileId(status.st_dev, status.st_ino));
            return;
        }
    }
    FAIL() << "not named";
}

TEST(ReadLogs, ReadsAFileWithTwoNamesOnce)
{
    const TempDirectory directory;
    const std::string path =
        directory.Write("qv7log", LogText().End(0, kLauncher, "a", 201, 0).Text());
    ASSERT_EQ(link(path.c_str(), (directory / "qv7log.1").c_str()), 0);
    EXPECT_EQ(ItemOf(MakeReport({path}, {}), "a").ends, 1U);
}

TEST(ReadLogs, ClosesEveryFile)
{
    const TempDirectory directory;
    const std::string path = directory.Write("qv7log", "");
    directory.Write("qv7log.1", "");
    ASSERT_EQ(link(path.c_str(), (directory / "qv7log.2").c_str()), 0);
    ASSERT_EQ(mkdir((directory / "qv7log.3").c_str(), 0700), 0);
    const int before = NextDescriptor();
    MakeReport({path, path, directory / "none"}, {});
    EXPECT_EQ(NextDescriptor(), before);
}

TEST(ReadLogs, ReportsUnreadableFiles)
{
    const TempDirectory directory;
    const std::string path =
        directory.Write("qv7log", LogText().End(0, kLauncher, "a", 201, 0).Text());
    ASSERT_EQ(mkdir((directory / "qv7log.1").c_str(), 0700), 0);
    const Report report = MakeReport({path, directory / "none"}, {});
    ASSERT_EQ(report.files.size(), 3U);
    EXPECT_FALSE(report.files[0].error.empty());
    EXPECT_TRUE(report.files[1].error.empty());
    EXPECT_EQ(report.files[2].path, directory / "none");
    EXPECT_FALSE(report.files[2].error.empty());
    EXPECT_EQ(report.items.size(), 1U);
}

TEST(ReadLogs, ReportsAnUnreadableFileWhereItsRecordsAreMissing)
{
    const TempDirectory directory;
    directory.Write("qv7log.4", LogText().Start(0, kLauncher, "a").Text());
    ASSERT_EQ(mkdir((directory / "qv7log.3").c_str(), 0700), 0);
    directory.Write("qv7log.2", LogText().Start(0, kLauncher, "b").Text());
    directory.Write("qv7log.1", "2" + std::string(1, '\0') + "0" + std::string(1, '\0'));
    const std::string path = directory.Write("qv7log", LogText().Start(0, kLauncher, "c").Text());
    std::vector<std::string> passed;
    LogSink sink;
    sink.on_file = [] {};
    sink.on_record = [&](const qv7log::Record& record, std::string_view) {
        passed.push_back(record.text.substr(record.text.rfind(' ') + 1));
    };
    sink.on_unreadable = [&](const std::string& file, const std::string& error) {
        passed.push_back(file.substr(file.rfind('/') + 1) + ": " + error);
    };
    ReadLogs({path}, sink);
    EXPECT_EQ(passed, (std::vector<std::string>{
                          "a", "qv7log.3: Is a directory", "b",
                          "qv7log.1: is UTF-16 text; convert it to UTF-8 first", "c"}));
}

TEST(ReadLogs, AcceptsLineEndsInCrLf)
{
    LogText log;
    log.End(0, kLauncher, "a", 201, 0).End(1000, kLauncher, "a", 202, 0);
    std::string text = log.Text();
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
        text.insert(at, 1, '\r');
    }
    const Report report = ReportOn(LogText().Raw(text));
    EXPECT_EQ(report.unread, 0U);
    EXPECT_EQ(ItemOf(report, "a").ends, 2U);
}

TEST(ReadLogs, RejectsUtf16)
{
    const TempDirectory directory;
    const std::string zero(1, '\0');
    for (const std::string& text : {"\xff\xfe" + std::string("2") + zero, "\xfe\xff" + zero + "2",
                                    "2" + zero + "0" + zero, zero + "2" + zero + "0"}) {
        const Report report = MakeReport({directory.Write("qv7log", text)}, {});
        EXPECT_NE(report.files[0].error.find("UTF-16"), std::string::npos);
    }
}
