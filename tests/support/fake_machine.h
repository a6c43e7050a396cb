// The machine as the code under test sees it: the path of its executable, and the user. The source
// defines GetExecutablePath, getuid and getpwuid for the test program.
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

    std::string executable;    // Empty: the path is unavailable.
    std::optional<User> user;  // nullopt: the password database has no entry.
};

// Determines the results of the replaced functions.
extern FakeMachine g_fake_machine;
