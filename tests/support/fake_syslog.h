// The system log as the code under test sees it. The source defines syslog and openlog for the test
// program.
#pragma once

#include <string>
#include <utility>
#include <vector>

// Priority and text of every entry, in order.
extern std::vector<std::pair<int, std::string>> g_system_events;

// How often openlog was called.
extern int g_openlog_calls;
