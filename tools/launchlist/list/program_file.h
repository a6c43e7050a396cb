// Whether the system could execute a program.
//
// Looks at the file and its first bytes, and for a script at its interpreter. Executes nothing.
// The answer holds for this machine, this user, this directory and this moment.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "tools/launchlist/list/finding_kinds.h"
#include "tools/launchlist/list/registered_formats.h"

namespace launchlist {

struct ProgramFile
{
    std::optional<Kind> problem;  // A kind of kProgram...; nothing if the program can be executed.
    std::string message;          // `"/x" does not exist`
    std::string fix;

    // Whether the system may know an interpreter for this file that this process cannot learn of.
    bool may_be_registered = false;

    // Whether execv would fail, or would do so in this directory. A foreign program may be one that
    // the system can emulate.
    bool CannotRun() const
    {
        return problem && *problem != Kind::kProgramForeign && *problem != Kind::kProgramRelative;
    }
};

// Examines programs and remembers the answers: many items may name one program.
class ProgramFiles
{
public:
    ProgramFiles();

    // With another directory of registrations than the system's; see RegisteredFormats.
    explicit ProgramFiles(const std::string& registrations);

    // `path` must not be empty.
    const ProgramFile& Examine(const std::string& path);

private:
    RegisteredFormats m_formats;
    std::map<std::string, ProgramFile> m_known;
};

}  // namespace launchlist
