#include "tools/launchlist/list/member_check.h"

#include "tools/launchlist/base/text.h"

namespace launchlist {

std::string MemberPath(const std::string& path, const std::string& name)
{
    std::string result = path + "/";
    for (const char c : name) {
        if (c == '~') {
            result += "~0";
        } else if (c == '/') {
            result += "~1";
        } else {
            result += c;
        }
    }
    return result;
}

void CheckReplaced(const std::vector<JsonMember>& members, const std::string& path,
                   Findings& findings)
{
    for (const JsonMember& member : members) {
        if (member.replaced) {
            findings.push_back({Severity::kWarning, "member-twice", member.name_begin,
                                MemberPath(path, member.name),
                                quoted(member.name) + " is written again further down",
                                "the later one counts", "remove one of them"});
        }
    }
}

void ReplaceEffects(Findings& findings, std::size_t first, const char* effect)
{
    for (std::size_t i = first; i < findings.size(); ++i) {
        findings[i].effect = effect;
    }
}

}  // namespace launchlist
