// Logs for tests: records in the format of the log.
#pragma once

#include <cstdio>
#include <string>

#include "tests/support/temp_directory.h"
#include "tools/launchlist/log/log_time.h"

class LogText
{
public:
    // A record `time` milliseconds after the log's first day began. `text` is escaped already.
    LogText& Add(launchlist::Milliseconds time, const std::string& level, int process,
                 const std::string& text)
    {
        char level_field[16];
        std::snprintf(level_field, sizeof level_field, "%-8s", level.c_str());
        m_text += Time(time) + " " + level_field + " launcher[" + std::to_string(process) + "] " +
                  text + "\n";
        return *this;
    }

    LogText& Start(launchlist::Milliseconds time, int process, const std::string& name)
    {
        return Add(time, "DEBUG", process, "[LAUNCHER  ] Start to fork " + name);
    }

    LogText& End(launchlist::Milliseconds time, int process, const std::string& name, int child,
                 int wait_status)
    {
        return Add(time, "ERROR", process,
                   "[LAUNCHER  ] " + name + " " + std::to_string(child) + " is killed. ret = " +
                       std::to_string(child) + ", status = " + std::to_string(wait_status));
    }

    LogText& Raw(const std::string& bytes)
    {
        m_text += bytes;
        return *this;
    }

    const std::string& Text() const { return m_text; }

    static std::string Time(launchlist::Milliseconds time)
    {
        return launchlist::FormatTimeStamp(*launchlist::ParseTimeStamp("2026-11-21T00:00:00.000Z") +
                                           time);
    }

private:
    std::string m_text;
};
