// Reports on logs of tests.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/tools/launchlist/log/log_text.h"
#include "tools/launchlist/log/make_report.h"

// Process ids and wait statuses of the tests' logs.
constexpr int kLauncher = 100;
constexpr int kExit3 = 3 << 8;
constexpr int kKilled = 9;
constexpr int kTerminated = 15;

// The time in milliseconds since 1970 that is `time` milliseconds after the log's first day began.
inline launchlist::Milliseconds At(launchlist::Milliseconds time)
{
    return *launchlist::ParseTimeStamp(LogText::Time(time));
}

// As though the log were read long after its last record, unless `range` says otherwise.
inline launchlist::Report ReportOn(const LogText& log, launchlist::ReportRange range = {})
{
    const TempDirectory directory;
    if (range.now == 0) {
        range.now = At(launchlist::Milliseconds{1000} * 24 * 3600 * 1000);
    }
    return launchlist::MakeReport({directory.Write("qv7log", log.Text())}, range);
}

inline const launchlist::ItemReport& ItemOf(const launchlist::Report& report,
                                            const std::string& name)
{
    for (const launchlist::ItemReport& item : report.items) {
        if (item.name == name) {
            return item;
        }
    }
    ADD_FAILURE() << "no item " << name;
    static const launchlist::ItemReport kNone;
    return kNone;
}
