#include "tools/launchlist/list/check_context.h"

#include <algorithm>
#include <map>

#include "tools/launchlist/base/text.h"

namespace launchlist {

namespace {

constexpr std::size_t kStride = 4096;

}  // namespace

JsonPosition Positions::At(std::size_t offset)
{
    while (m_known.back().offset + kStride <= offset) {
        const JsonPosition next =
            m_source.Position(m_known.back().offset + kStride, m_known.back());
        if (next.offset == m_known.back().offset) {
            break;  // The end of the text.
        }
        m_known.push_back(next);
    }
    const std::size_t index = std::min(offset / kStride, m_known.size() - 1);
    return m_source.Position(offset, m_known[index]);
}

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
                   CheckContext& context)
{
    std::map<std::string, std::size_t> winners;
    for (const JsonMember& member : members) {
        if (!member.replaced) {
            winners[member.name] = member.name_begin;
        }
    }
    for (const JsonMember& member : members) {
        if (member.replaced) {
            const std::size_t line = context.positions.At(winners[member.name]).line;
            context.findings.Add({Kind::kDuplicateMember, member.name_begin,
                                  MemberPath(path, member.name),
                                  "duplicate member " + quoted(member.name) +
                                      "; the last one wins (line " + std::to_string(line) + ")",
                                  "this one is ignored", "remove one of them"});
        }
    }
}

}  // namespace launchlist
