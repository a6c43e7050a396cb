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

// A kind of file that is ours and may be replaced.
struct Kind
{
    const char* name;
    std::string_view mark;  // At its beginning.
};

// Whether the file at `path`, which is a regular file, begins with `mark`.
bool HasMark(const std::string& path, std::string_view mark)
{
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0) {
        return false;
    }
    std::string begin(mark.size(), '\0');
    const ssize_t count = read(descriptor, begin.data(), begin.size());
    close(descriptor);
    return count == static_cast<ssize_t>(begin.size()) && begin == mark;
}

bool MayReplace(const std::string& path, const Kind& kind, const std::vector<LogFile>& inputs,
                bool is_forced, std::string& error)
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
    if (!is_forced && status.st_size > 0 && !HasMark(path, kind.mark)) {
        error =
            std::string("exists and is not a ") + kind.name + " of launchlist; --force replaces it";
        return false;
    }
    return true;
}

}  // namespace

bool WritePage(const std::string& path, std::string_view page, const std::vector<LogFile>& inputs,
               bool is_forced, std::string& error)
{
    return MayReplace(path, {"page", kPageMark}, inputs, is_forced, error) &&
           ReplaceFile(path, page, {}, error);
}

bool WriteTrace(const std::string& path, std::string_view trace, const std::vector<LogFile>& inputs,
                bool is_forced, std::string& error)
{
    return MayReplace(path, {"trace", kTraceMark}, inputs, is_forced, error) &&
           ReplaceFile(path, trace, {}, error);
}

}  // namespace launchlist
