// Whether the system could execute a program.
//
// Examines the file and its first bytes, and the interpreter of a script. Executes nothing. The
// answer holds for this machine, this user, this directory and this moment.
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

    // Whether the system may have an interpreter registered for this file that this process cannot
    // see.
    bool may_be_registered = false;

    // Whether execv would fail; for a relative path, in this directory. False for a foreign
    // program, because the system may be able to emulate it.
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

    // Reads the registrations from another directory than the system's; see RegisteredFormats.
    explicit ProgramFiles(const std::string& registrations);

    // `path` must not be empty.
    const ProgramFile& Examine(const std::string& path);

private:
    RegisteredFormats m_formats;
    std::map<std::string, ProgramFile> m_known;
};

}  // namespace launchlist
