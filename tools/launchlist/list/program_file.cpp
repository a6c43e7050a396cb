#include "tools/launchlist/list/program_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "tools/launchlist/base/text.h"
#include "tools/launchlist/list/execution_limits.h"

namespace launchlist {

namespace {

// More than MaxInterpreterLine() on every system, and enough for a header.
constexpr std::size_t kHeadSize = 1024;

constexpr char kCorrectPath[] = "correct the path, or install the program";

constexpr int kOpenFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

ProgramFile ExamineAccess(const std::string& path);
ProgramFile ExamineFile(const std::string& path, const RegisteredFormats& formats, int depth);

bool IsExecutableFile(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           access(path.c_str(), X_OK) == 0;
}

// What to do about a path that does not exist.
std::string FixForMissing(const std::string& path)
{
    const std::size_t blank = path.find_first_of(" \t");
    if (blank != std::string::npos && blank > 0 && IsExecutableFile(path.substr(0, blank))) {
        return "write " + quoted(path.substr(0, blank)) +
               " and put its arguments into \"args\", with their number in \"argc\"";
    }
    return kCorrectPath;
}

ProgramFile ExamineFailedStat(const std::string& path, int error)
{
    if (error == ENOENT || error == ENOTDIR) {
        return {Kind::kProgramMissing, quoted(path) + " does not exist", FixForMissing(path)};
    }
    return {Kind::kProgramInaccessible,
            quoted(path) + " cannot be examined: " + std::strerror(error),
            "correct the path, or the permissions of its directories"};
}

const char* NameOfType(mode_t mode)
{
    return S_ISDIR(mode) ? " is a directory" : " is not a regular file";
}

// The interpreter that the first line of a script names: everything between "#!" and the next blank
// or line end. "" if there is none, or if the part of the line that the system reads cuts it off.
// `head` starts with "#!".
std::string InterpreterOf(const std::string& head)
{
    const std::size_t line_end = std::min(head.find('\n'), head.size());
    const std::size_t limit = std::min(line_end, MaxInterpreterLine());
    const std::string line = head.substr(2, limit - 2);
    const std::size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos || line[begin] == '\0') {
        return "";
    }
    const std::size_t end = line.find_first_of(std::string(" \t\0", 3), begin);
    return end == std::string::npos && limit < line_end ? "" : line.substr(begin, end - begin);
}

// What `file`, the result for the interpreter or loader at `path`, means for the program that needs
// it. `role` says what that file is to the program; `fix` is the fix if it cannot be executed.
ProgramFile ExplainNeeded(const std::string& program, const std::string& role,
                          const std::string& path, const ProgramFile& file, const std::string& fix)
{
    const bool is_relative = path[0] != '/';
    const std::string subject = "the " + role + " of " + quoted(program);
    if (!file.CannotRun()) {
        return is_relative && !file.problem
                   ? ProgramFile{Kind::kProgramRelative,
                                 subject + " is given by a relative path, " + quoted(path),
                                 "write its absolute path"}
                   : file;
    }
    if (!is_relative && file.problem != Kind::kProgramRelativeUnusable) {
        return {Kind::kProgramInterpreter, subject + " cannot be executed: " + file.message, fix,
                file.may_be_registered};
    }
    return {Kind::kProgramRelativeUnusable,
            subject + " cannot be executed from this directory: " + file.message,
            is_relative ? "write its absolute path" : file.fix, file.may_be_registered};
}

ProgramFile TooManyInterpreters(const std::string& path)
{
    return {Kind::kProgramInterpreter,
            quoted(path) + " needs more interpreters that are scripts than the system allows",
            "use an interpreter that is not a script"};
}

ProgramFile ExamineScript(const std::string& path, const std::string& head,
                          const RegisteredFormats& formats, int depth)
{
    const std::string interpreter = InterpreterOf(head);
    if (interpreter.empty()) {
        return {Kind::kProgramInterpreter,
                quoted(path) + " names no usable interpreter after \"#!\"",
                "write the path of the interpreter there"};
    }
    if (interpreter.back() == '\r') {
        return {Kind::kProgramInterpreter,
                quoted(path) +
                    " has a carriage return at the end of its first line, so its "
                    "interpreter is " +
                    quoted(interpreter),
                "save it with LF line endings instead of CRLF"};
    }
    if (depth >= MaxScriptDepth()) {
        return TooManyInterpreters(path);
    }
    return ExplainNeeded(path, "interpreter", interpreter,
                         ExamineFile(interpreter, formats, depth + 1),
                         "correct the first line, or install the interpreter");
}

// The first bytes of an open file; empty if they cannot be read.
std::optional<std::string> ReadHead(int descriptor)
{
    std::string head(kHeadSize, '\0');
    const ssize_t count = read(descriptor, head.data(), head.size());
    if (count < 0) {
        return std::nullopt;
    }
    head.resize(static_cast<std::size_t>(count));
    return head;
}

// `head` is that of the program that needs the loader.
ProgramFile ExamineLoader(const std::string& loader, const std::string& head)
{
    ProgramFile file = ExamineAccess(loader);
    const int descriptor = file.problem ? -1 : open(loader.c_str(), kOpenFlags);
    if (descriptor < 0) {
        return file;
    }
    const std::optional<std::string> loader_head = ReadHead(descriptor);
    close(descriptor);
    if (loader_head && !CanLoad(*loader_head, head)) {
        return {Kind::kProgramFormat, quoted(loader) + " is not a loader for this program", ""};
    }
    return {};
}

ProgramFile ExamineContents(const std::string& path, int descriptor,
                            const RegisteredFormats& formats, int depth)
{
    const std::optional<std::string> contents = ReadHead(descriptor);
    if (!contents) {
        return {};
    }
    const std::string& head = *contents;
    const std::string registered = formats.InterpreterOf(path, head);
    if (!registered.empty()) {
        return depth >= MaxScriptDepth()
                   ? TooManyInterpreters(path)
                   : ExplainNeeded(path, "registered interpreter", registered,
                                   ExamineFile(registered, formats, depth + 1),
                                   "install the interpreter");
    }
    if (head.empty()) {
        return {Kind::kProgramEmpty, quoted(path) + " is empty", "install the program again"};
    }
    if (head.compare(0, 2, "#!") == 0) {
        return ExamineScript(path, head, formats, depth);
    }
    std::string loader;
    switch (FormatOf(head, descriptor, loader)) {
        case BinaryFormat::kForeign:
            return {Kind::kProgramForeign, quoted(path) + " is built for another processor",
                    "install the program for this processor"};
        case BinaryFormat::kDamaged:
            return {
                Kind::kProgramFormat,
                quoted(path) + " is damaged, or a library or an object file rather than a program",
                "install the program again"};
        case BinaryFormat::kNone:
            return {Kind::kProgramFormat, quoted(path) + " is neither a program nor a script",
                    "start a script with a line such as \"#!/bin/sh\"", !formats.IsKnown()};
        case BinaryFormat::kNative:
            break;
    }
    return loader.empty() ? ProgramFile()
                          : ExplainNeeded(path, "loader", loader, ExamineLoader(loader, head),
                                          "install the program for this system");
}

// What can be said about a file without reading it.
ProgramFile ExamineAccess(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return ExamineFailedStat(path, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return {Kind::kProgramNotRegular, quoted(path) + NameOfType(status.st_mode),
                "write the path of the program itself"};
    }
    if (access(path.c_str(), X_OK) != 0) {
        return {Kind::kProgramNotExecutable, quoted(path) + " is not executable",
                "make it executable for the launcher's user (chmod +x)"};
    }
    return {};
}

ProgramFile ExamineFile(const std::string& path, const RegisteredFormats& formats, int depth)
{
    ProgramFile result = ExamineAccess(path);
    const int descriptor = result.problem ? -1 : open(path.c_str(), kOpenFlags);
    if (descriptor < 0) {
        return result;  // The permission to execute does not include that to read.
    }
    result = ExamineContents(path, descriptor, formats, depth);
    close(descriptor);
    return result;
}

// The first program of this name in the directories of PATH; "" if there is none.
std::string FindOnPath(const std::string& name)
{
    const char* variable = std::getenv("PATH");
    const std::string directories = variable != nullptr ? variable : "";
    for (std::size_t begin = 0; begin < directories.size();) {
        const std::size_t end = std::min(directories.find(':', begin), directories.size());
        std::string path = directories.substr(begin, end - begin) + "/" + name;
        if (path[0] == '/' && end > begin && IsExecutableFile(path)) {
            return path;
        }
        begin = end + 1;
    }
    return "";
}

// Replaces the message and the fix for a relative path that does not exist, if its form shows what
// the author of the list intended.
void ExplainRelative(const std::string& path, ProgramFile& file)
{
    const bool is_drive =
        path.size() > 2 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0])) != 0;
    if (path[0] == '~' || path.find('$') != std::string::npos || path[0] == '%') {
        file.message = quoted(path) + " is taken literally: nothing is expanded";
        file.fix = "write the whole path, starting with \"/\"";
    } else if (std::isspace(static_cast<unsigned char>(path[0])) != 0) {
        file.message = quoted(path) + " starts with white space, which is part of the path";
        file.fix = "remove the white space";
    } else if (is_drive) {
        file.message = quoted(path) + " is not an absolute path on this system";
    } else if (path.find('/') == std::string::npos) {
        file.message = quoted(path) + " is a relative path: PATH is not searched";
        const std::string found = FindOnPath(path.substr(0, path.find_first_of(" \t")));
        if (!found.empty()) {
            file.fix = path.find_first_of(" \t") == std::string::npos
                           ? "write " + quoted(found)
                           : "write " + quoted(found) +
                                 " and put its arguments into \"args\", with their number in "
                                 "\"argc\"";
        }
    }
}

// The registrations of this system, read once.
const RegisteredFormats& SystemFormats()
{
    static const RegisteredFormats formats{RegistrationDirectory()};
    return formats;
}

ProgramFile ExamineRelative(const std::string& path, const RegisteredFormats& formats)
{
    ProgramFile file = ExamineFile(path, formats, 0);
    if (!file.CannotRun()) {
        return file.problem == Kind::kProgramForeign
                   ? file
                   : ProgramFile{Kind::kProgramRelative, quoted(path) + " is a relative path",
                                 "write an absolute path"};
    }
    const bool is_missing = file.problem == Kind::kProgramMissing;
    file.problem = Kind::kProgramRelativeUnusable;
    file.message = quoted(path) + " is a relative path; resolved from this directory, " +
                   (is_missing ? "it does not exist" : file.message);
    file.fix = "write an absolute path";
    if (is_missing) {
        ExplainRelative(path, file);
    }
    return file;
}

}  // namespace

ProgramFiles::ProgramFiles() : m_formats(SystemFormats()) {}

ProgramFiles::ProgramFiles(const std::string& registrations) : m_formats(registrations) {}

const ProgramFile& ProgramFiles::Examine(const std::string& path)
{
    const auto [known, is_new] = m_known.try_emplace(path);
    if (is_new) {
        known->second =
            path[0] == '/' ? ExamineFile(path, m_formats, 0) : ExamineRelative(path, m_formats);
    }
    return known->second;
}

}  // namespace launchlist
