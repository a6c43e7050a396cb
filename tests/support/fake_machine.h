// The machine as the code under test sees it: where its executable lies and who the user is.
// The source defines GetExecutablePath and getpwuid for the test program.
#pragma once

#include <optional>
#include <string>

struct FakeMachine
{
    struct User
    {
        std::string name;
        std::string home;
    };

    std::string executable;    // Empty: the path is not to be had.
    std::optional<User> user;  // None: the password database has no entry.
};

// What the replaced functions answer from.
extern FakeMachine g_fake_machine;
