#include "tests/support/fake_machine.h"

#include <pwd.h>
#include <unistd.h>

#include <cstring>

#include "config/executable_path.h"

FakeMachine g_fake_machine;

bool GetExecutablePath(char* buffer, std::uint32_t size)
{
    const std::string& path = g_fake_machine.executable;
    if (path.empty() || path.size() >= size) {
        return false;
    }
    std::memcpy(buffer, path.c_str(), path.size() + 1);
    return true;
}

namespace {

constexpr uid_t kRealUser = 4711;

}  // namespace

// The real user, different from the effective user of the test program.
extern "C" uid_t getuid()
{
    return kRealUser;
}

extern "C" passwd* getpwuid(uid_t uid)
{
    if (!g_fake_machine.user || uid != kRealUser) {
        return nullptr;
    }
    static passwd entry;
    entry.pw_name = g_fake_machine.user->name.data();
    entry.pw_dir = g_fake_machine.user->home.data();
    return &entry;
}
