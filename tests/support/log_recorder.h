// A log that keeps its records for the test.
#pragma once

#include <algorithm>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "qv7log/include/qv7log.h"

using Record = std::pair<LOGLEVEL, std::string>;

class LogRecorder final : public ILog
{
public:
    void Reserved1() override {}
    void Reserved2() override {}

    __attribute__((format(printf, 3, 0))) void LogV(LOGLEVEL level, const char* format,
                                                    va_list arguments) override
    {
        char text[4096];
        std::vsnprintf(text, sizeof text, format, arguments);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_records.emplace_back(level, text);
        }
        if (m_hook) {
            m_hook(text);
        }
    }

    // `hook` is called on the logging thread with the text of every record, after the record has
    // been stored. Must be set before anything logs.
    void SetHook(std::function<void(const std::string&)> hook) { m_hook = std::move(hook); }

    std::vector<Record> records() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_records;
    }

    bool Has(LOGLEVEL level, const std::string& text) const
    {
        const std::vector<Record> all = records();
        return std::count(all.begin(), all.end(), Record(level, text)) > 0;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Record> m_records;
    std::function<void(const std::string&)> m_hook;
};
