#include "tools/launchlist/log/item_summary.h"

#include <algorithm>

namespace launchlist {

namespace {

constexpr Milliseconds kSecond = 1000;
constexpr Milliseconds kMinute = 60 * kSecond;
constexpr Milliseconds kHour = 60 * kMinute;

// Adds [from, to] to `parts`, joined to the last one if it touches it.
void Join(std::vector<KnownPeriod>& parts, KnownPeriod part)
{
    if (!parts.empty() && part.from <= parts.back().to) {
        parts.back().to = std::max(parts.back().to, part.to);
    } else {
        parts.push_back(part);
    }
}

std::vector<KnownPeriod> Union(std::vector<KnownPeriod> parts)
{
    std::sort(parts.begin(), parts.end(),
              [](const KnownPeriod& a, const KnownPeriod& b) { return a.from < b.from; });
    std::vector<KnownPeriod> joined;
    for (const KnownPeriod& part : parts) {
        Join(joined, part);
    }
    return joined;
}

// The greatest number of `times` within `span`, and the first of them.
std::size_t Densest(std::vector<Milliseconds> times, Milliseconds span, Milliseconds& from)
{
    std::sort(times.begin(), times.end());
    std::size_t most = 0;
    std::size_t first = 0;
    for (std::size_t last = 0; last < times.size(); ++last) {
        while (times[last] - times[first] >= span) {
            ++first;
        }
        if (last - first + 1 > most) {
            most = last - first + 1;
            from = times[first];
        }
    }
    return most;
}

class Summary
{
public:
    Summary(ItemReport& item, Milliseconds first, Milliseconds last)
        : m_item(item), m_first(first), m_last(last)
    {
    }

    void Compute()
    {
        DropRuns();
        CountEvents();
        MeasureRuns();
        FindLoop();
        FindRate();
        AddPresence();
        m_item.state = FindState();
        m_item.severity = Judge();
    }

private:
    bool IsWithin(Milliseconds time) const { return time >= m_first && time <= m_last; }

    std::size_t CountWithin(const std::vector<Milliseconds>& times) const
    {
        return static_cast<std::size_t>(std::count_if(
            times.begin(), times.end(), [this](Milliseconds time) { return IsWithin(time); }));
    }

    bool EndsWithin(const Run& run) const
    {
        return run.end && run.role != Role::kFailed && IsWithin(*run.end);
    }

    void DropRuns()
    {
        const auto is_outside = [this](const Run& run) {
            const Milliseconds from = std::min(run.from, run.start.value_or(run.from));
            const Milliseconds to =
                std::max({run.to, run.down_until.value_or(run.to), run.end.value_or(run.to)});
            return to < m_first || from > m_last;
        };
        auto& runs = m_item.runs;
        runs.erase(std::remove_if(runs.begin(), runs.end(), is_outside), runs.end());
    }

    void CountEvents()
    {
        std::size_t starts = 0;
        std::vector<Milliseconds> restarts;
        for (const Run& run : m_item.runs) {
            // Failed forks and items without a program are counted separately.
            const bool is_failed =
                run.role == Role::kFailed && !run.is_abandoned && !run.lacks_program;
            const bool starts_within = run.start && IsWithin(*run.start);
            if (starts_within) {
                ++starts;
                m_item.failed_starts += is_failed ? 1 : 0;
                if (!run.is_first) {
                    restarts.push_back(*run.start);
                }
            } else if (!run.start && is_failed) {
                ++m_item.failed_starts;
            }
            if (EndsWithin(run)) {
                CountEnd(run);
            }
        }
        m_item.no_program = CountWithin(m_item.no_program_times);
        m_item.failed_forks = CountWithin(m_item.failed_fork_times);
        if (!m_item.lacks_starts) {
            m_item.starts = starts;
        }
        m_item.restarts = restarts.size();
        Milliseconds ignored = 0;
        m_item.worst_minute = Densest(std::move(restarts), kMinute, ignored);
    }

    void CountEnd(const Run& run)
    {
        ++m_item.ends;
        if (run.ended_by == EndedBy::kLauncher) {
            ++m_item.stops;
        } else if (run.ended_by == EndedBy::kMaybeLauncher) {
            ++m_item.possible_stops;
        } else if (run.ended_by == EndedBy::kUnknown) {
            ++m_item.unknown_ends;
        } else {
            ++(run.IsCrash() ? m_item.crashes : m_item.clean_ends);
            ++m_item.causes[run.termination];
            m_ends.push_back(*run.end);
        }
    }

    // The lengths of the runs that ended.
    void MeasureRuns()
    {
        std::vector<Milliseconds> lengths;
        for (const Run& run : m_item.runs) {
            if (!EndsWithin(run)) {
                continue;
            }
            if (const auto length = run.Length()) {
                lengths.push_back(*length);
            } else {
                ++m_item.unknown_runs;
            }
        }
        if (lengths.empty()) {
            return;
        }
        std::sort(lengths.begin(), lengths.end());
        m_item.shortest = lengths.front();
        m_item.median = (lengths[(lengths.size() - 1) / 2] + lengths[lengths.size() / 2]) / 2;
        m_item.longest = lengths.back();
    }

    void FindLoop()
    {
        Loop series;
        Loop longest;
        std::uint32_t launcher = 0;
        for (const Run& run : m_item.runs) {
            if (!EndsWithin(run)) {
                continue;
            }
            const auto length = run.Length();
            if (!length || *length >= kShortRun || run.ended_by != EndedBy::kProgram ||
                run.launcher != launcher) {
                series = Loop();
                launcher = run.launcher;
            }
            if (!length || *length >= kShortRun || run.ended_by != EndedBy::kProgram) {
                continue;
            }
            series.from = series.runs == 0 ? *run.start : series.from;
            series.to = *run.end;
            series.is_crash = series.is_crash || run.IsCrash();
            ++series.runs;
            if (series.runs > longest.runs) {
                longest = series;
            }
        }
        if (longest.runs >= kLoopRuns) {
            m_item.loop = longest;
        }
    }

    void FindRate()
    {
        if (m_ends.empty()) {
            return;
        }
        Rate rate;
        rate.worst_hour = Densest(m_ends, kHour, rate.worst_hour_from);
        const auto [first, last] = std::minmax_element(m_ends.begin(), m_ends.end());
        rate.first = *first;
        rate.last = *last;
        const Milliseconds span = std::max(rate.last - rate.first, kHour);
        rate.per_hour = static_cast<double>(m_ends.size()) * static_cast<double>(kHour) /
                        static_cast<double>(span);
        rate.continues = Continues() && !IsFinalAfter(rate.last);
        m_item.rate = rate;
    }

    // Whether neither the last interval between two ends nor the time after the last end is much
    // longer than the median of the last intervals.
    bool Continues()
    {
        if (m_ends.size() < kFrequentEnds) {
            return false;
        }
        std::sort(m_ends.begin(), m_ends.end());
        std::vector<Milliseconds> intervals;
        for (std::size_t i = m_ends.size() - kFrequentEnds + 1; i < m_ends.size(); ++i) {
            intervals.push_back(m_ends[i] - m_ends[i - 1]);
        }
        const Milliseconds latest = std::max(intervals.back(), m_last - m_ends.back());
        std::sort(intervals.begin(), intervals.end());
        return latest <= std::max(3 * intervals[(intervals.size() - 1) / 2], 2 * kSecond);
    }

    // Whether the item stayed down after an end at `time` or later.
    bool IsFinalAfter(Milliseconds time) const
    {
        return std::any_of(m_item.runs.begin(), m_item.runs.end(), [time](const Run& run) {
            return run.is_final && run.end && *run.end >= time;
        });
    }

    void AddPresence()
    {
        for (const KnownPeriod& part : KnownPeriodsOf(m_item, m_first, m_last)) {
            (part.is_running ? m_item.running : m_item.down) += part.to - part.from;
        }
        m_item.unknown = m_last - m_first - m_item.running - m_item.down;
    }

    State FindState() const
    {
        const auto is_running = [this](const Run& run) {
            return run.role == Role::kRun && !(run.end && *run.end <= m_last) &&
                   run.from < run.to && run.from <= m_last && run.to >= m_last;
        };
        if (std::any_of(m_item.runs.begin(), m_item.runs.end(), is_running)) {
            return State::kRunning;
        }
        const Run* latest = nullptr;
        Milliseconds when = 0;
        for (const Run& run : m_item.runs) {
            const bool has_ended = run.end && *run.end <= m_last;
            const Milliseconds time = has_ended ? *run.end : run.start.value_or(run.from);
            if (time <= m_last && (latest == nullptr || time >= when)) {
                latest = &run;
                when = time;
            }
        }
        const auto is_latest = [&](const std::vector<Milliseconds>& times) {
            return std::any_of(times.begin(), times.end(),
                               [&](Milliseconds time) { return time >= when && time <= m_last; });
        };
        if (is_latest(m_item.failed_fork_times)) {
            return State::kAbandoned;
        }
        if (is_latest(m_item.no_program_times)) {
            return State::kFailing;
        }
        return latest == nullptr ? State::kUnknown : StateAfter(*latest);
    }

    State StateAfter(const Run& run) const
    {
        if (run.is_abandoned) {
            return State::kAbandoned;
        }
        if (run.end && *run.end <= m_last) {
            if (run.ended_by == EndedBy::kLauncher) {
                return State::kStopped;
            }
            if (run.ended_by == EndedBy::kUnknown) {
                return State::kUnknown;
            }
            if (run.is_final) {
                return State::kEnded;
            }
            const bool is_waiting = !m_item.lacks_starts && run.ended_by == EndedBy::kProgram &&
                                    m_last - *run.end <= kSecond;
            return is_waiting ? State::kEnded : State::kUnknown;
        }
        if (run.role == Role::kFailed) {
            return State::kFailing;
        }
        if (run.role == Role::kAttempt) {
            if (m_last - run.from > kSecond) {
                return State::kUnknown;
            }
            return m_item.failed_starts > 0 ? State::kFailing : State::kStarted;
        }
        if (run.to >= m_last) {
            return State::kRunning;
        }
        return State::kUnknown;
    }

    ItemSeverity Judge() const
    {
        const bool never_runs =
            m_item.state == State::kFailing || m_item.state == State::kAbandoned;
        const bool is_frequent =
            m_item.loop || (m_item.rate && m_item.rate->worst_hour >= kFrequentEnds);
        if (never_runs || (is_frequent && m_item.rate && m_item.rate->continues)) {
            return ItemSeverity::kBroken;
        }
        if (is_frequent || m_item.failed_starts + m_item.no_program + m_item.failed_forks > 0) {
            return ItemSeverity::kTroubled;
        }
        return m_item.crashes + m_item.unknown_ends > 0 ? ItemSeverity::kNotable
                                                        : ItemSeverity::kHealthy;
    }

    ItemReport& m_item;
    const Milliseconds m_first;
    const Milliseconds m_last;
    std::vector<Milliseconds> m_ends;  // Not caused by a launcher.
};

}  // namespace

std::optional<Milliseconds> Run::Length() const
{
    if (!start || !end || *end < *start || ended_by == EndedBy::kUnknown) {
        return std::nullopt;
    }
    return *end - *start;
}

bool Run::IsCrash() const
{
    return end && ended_by == EndedBy::kProgram && role != Role::kFailed &&
           ExitStatusOf(termination) != 0;
}

std::vector<KnownPeriod> KnownPeriodsOf(const ItemReport& item, Milliseconds first,
                                        Milliseconds last)
{
    std::vector<KnownPeriod> running;
    std::vector<KnownPeriod> down;
    const auto add = [&](std::vector<KnownPeriod>& parts, Milliseconds from, Milliseconds to,
                         bool is_running) {
        from = std::max(from, first);
        to = std::min(to, last);
        if (from < to) {
            parts.push_back({from, to, is_running});
        }
    };
    for (const Run& run : item.runs) {
        if (run.role == Role::kRun) {
            add(running, run.from, run.to, true);
        }
        if (run.down_until) {
            const bool has_ended = run.end && run.role != Role::kFailed;
            add(down, has_ended ? *run.end : run.start.value_or(run.to), *run.down_until, false);
        }
    }
    running = Union(std::move(running));
    down = Union(std::move(down));
    // What is down loses the parts that are running.
    std::vector<KnownPeriod> parts;
    std::size_t next = 0;
    for (const KnownPeriod& part : down) {
        Milliseconds from = part.from;
        while (next < running.size() && running[next].to <= from) {
            ++next;
        }
        for (std::size_t i = next; i < running.size() && running[i].from < part.to; ++i) {
            if (running[i].from > from) {
                parts.push_back({from, running[i].from, false});
            }
            from = std::max(from, running[i].to);
        }
        if (from < part.to) {
            parts.push_back({from, part.to, false});
        }
    }
    parts.insert(parts.end(), running.begin(), running.end());
    std::sort(parts.begin(), parts.end(),
              [](const KnownPeriod& a, const KnownPeriod& b) { return a.from < b.from; });
    return parts;
}

void Summarize(ItemReport& item, Milliseconds first, Milliseconds last)
{
    Summary(item, first, last).Compute();
}

}  // namespace launchlist
