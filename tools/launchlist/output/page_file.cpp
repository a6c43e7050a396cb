#include "tools/launchlist/output/page_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "tools/launchlist/base/files.h"
#include "tools/launchlist/output/report_formats.h"

namespace launchlist {

namespace {

bool Fail(std::string& error)
{
    error = std::strerror(errno);
    return false;
}

// Whether the file at `path`, which is a regular file, begins like a page.
bool IsPage(const std::string& path)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0) {
        return false;
    }
    std::string begin(kPageMark.size(), '\0');
    const ssize_t count = read(descriptor, begin.data(), begin.size());
    close(descriptor);
    return count == static_cast<ssize_t>(begin.size()) && begin == kPageMark;
}

bool MayReplace(const std::string& path, const std::vector<LogFile>& inputs, bool is_forced,
                std::string& error)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT || Fail(error);
    }
    if (S_ISLNK(status.st_mode)) {
        error = "is a symbolic link; name the file itself";
        return false;
    }
    if (!S_ISREG(status.st_mode)) {
        error = "exists and is not a regular file";
        return false;
    }
    const FileId id(status.st_dev, status.st_ino);
    const auto is_same = [&](const LogFile& input) { return input.has_id && input.id == id; };
    if (std::any_of(inputs.begin(), inputs.end(), is_same)) {
        error = "is one of the logs that the report is about";
        return false;
    }
    if (!is_forced && status.st_size > 0 && !IsPage(path)) {
        error = "exists and is not a page of launchlist; --force replaces it";
        return false;
    }
    return true;
}

}  // namespace

bool WritePage(const std::string& path, std::string_view page, const std::vector<LogFile>& inputs,
               bool is_forced, std::string& error)
{
    return MayReplace(path, inputs, is_forced, error) && ReplaceFile(path, page, {}, error);
}

}  // namespace launchlist
