// What the checks of one list share.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "json/json_source.h"
#include "tools/launchlist/list/finding.h"
#include "tools/launchlist/list/program_file.h"

namespace launchlist {

// Lines and columns of a text. Remembers a position every few thousand bytes, so that looking up
// many offsets takes time proportional to their number, in whatever order they come.
class Positions
{
public:
    explicit Positions(const JsonSource& source) : m_source(source) {}

    JsonPosition At(std::size_t offset);

private:
    const JsonSource& m_source;
    std::vector<JsonPosition> m_known = {JsonPosition{}};
};

struct CheckContext
{
    const JsonSource& source;
    Findings& findings;
    Positions positions;
    ProgramFiles files;
};

// The member of a list that names its JSON schema.
inline constexpr char kSchemaMember[] = "$schema";

// The JSON pointer `path` extended by the member `name` (RFC 6901).
std::string MemberPath(const std::string& path, const std::string& name);

// Adds a warning for every member that a later member of the same name replaces.
void CheckReplaced(const std::vector<JsonMember>& members, const std::string& path,
                   CheckContext& context);

}  // namespace launchlist
