#include <algorithm>

#include "util/util.h"

namespace {

constexpr char kSlashes[] = "/\\";

}  // namespace

std::string ensure_ends_with_divider(std::string path)
{
    if (path.empty() || path.back() != '/') {
        path += '/';
    }
    return path;
}

std::string remove_head_slashes(std::string path)
{
    const auto start = path.find_first_not_of(kSlashes);
    return start == std::string::npos ? path : path.substr(start);
}

std::string remove_tail_slashes(std::string path)
{
    const auto last = path.find_last_not_of(kSlashes);
    return last == std::string::npos ? path : path.substr(0, last + 1);
}

std::string remove_duplicated_slashes(std::string path)
{
    const auto both_slashes = [](char a, char b) { return a == '/' && b == '/'; };
    path.erase(std::unique(path.begin(), path.end(), both_slashes), path.end());
    return path;
}

void split_container_name(std::string path, std::string& container, std::string& rest)
{
    if (path.empty()) {
        return;
    }
    path = remove_head_slashes(path);
    const auto slash = path.find('/');
    container = path.substr(0, slash);
    rest = slash == std::string::npos ? "" : path.substr(slash + 1);
}

std::string get_file_name(std::string path)
{
    // npos + 1 is 0, so a path without "/" is returned whole.
    return path.substr(path.rfind('/') + 1);
}
