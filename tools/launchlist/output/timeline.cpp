#include "tools/launchlist/output/timeline.h"

#include <algorithm>

#include "tools/launchlist/log/item_summary.h"

namespace launchlist {

namespace {

class Row
{
public:
    Row(Milliseconds first, Milliseconds last, std::size_t count)
        : m_first(first), m_last(last), m_cells(count), m_running(count), m_down(count)
    {
    }

    TimelineCell* At(Milliseconds time)
    {
        return time < m_first || time > m_last ? nullptr : &m_cells[IndexOf(time)];
    }

    void AddPart(const KnownPeriod& part)
    {
        const std::size_t end = IndexOf(part.to);
        for (std::size_t i = IndexOf(part.from); i <= end; ++i) {
            (part.is_running ? m_running : m_down)[i] += std::max<Milliseconds>(
                0, std::min(part.to, BeginOf(i + 1)) - std::max(part.from, BeginOf(i)));
        }
    }

    static void Raise(TimelineCell& cell, Cell kind) { cell.cell = std::max(cell.cell, kind); }

    std::vector<TimelineCell> Cells() &&
    {
        for (std::size_t i = 0; i < m_cells.size(); ++i) {
            const Milliseconds unknown = BeginOf(i + 1) - BeginOf(i) - m_running[i] - m_down[i];
            const bool is_running =
                m_running[i] > 0 && m_running[i] >= std::max(m_down[i], unknown);
            const bool is_down = m_down[i] > 0 && m_down[i] >= unknown;
            m_cells[i].base = is_running ? Cell::kRunning : is_down ? Cell::kDown : Cell::kUnknown;
            Raise(m_cells[i], m_cells[i].base);
        }
        return std::move(m_cells);
    }

private:
    double Span() const { return static_cast<double>(std::max<Milliseconds>(m_last - m_first, 1)); }

    std::size_t IndexOf(Milliseconds time) const
    {
        const double part = static_cast<double>(time - m_first) / Span();
        const double index = part * static_cast<double>(m_cells.size());
        return std::min(static_cast<std::size_t>(std::max(index, 0.0)), m_cells.size() - 1);
    }

    Milliseconds BeginOf(std::size_t index) const
    {
        return m_first + static_cast<Milliseconds>(Span() * static_cast<double>(index) /
                                                   static_cast<double>(m_cells.size()));
    }

    const Milliseconds m_first;
    const Milliseconds m_last;
    std::vector<TimelineCell> m_cells;
    // How much of the time of each cell.
    std::vector<Milliseconds> m_running;
    std::vector<Milliseconds> m_down;
};

void MarkRun(Row& row, const Run& run)
{
    if (run.is_abandoned || run.lacks_program) {
        return;  // Marked where this was logged.
    }
    if (run.role == Role::kFailed) {
        const auto time = run.start ? run.start : run.end;
        if (TimelineCell* cell = time ? row.At(*time) : nullptr) {
            ++cell->failed;
            Row::Raise(*cell, Cell::kFailed);
        }
        return;
    }
    TimelineCell* cell = run.end ? row.At(*run.end) : nullptr;
    if (cell == nullptr) {
        return;
    }
    switch (run.ended_by) {
        case EndedBy::kLauncher:
            ++cell->stops;
            Row::Raise(*cell, Cell::kStop);
            break;
        case EndedBy::kMaybeLauncher:
            ++cell->maybe_stops;
            Row::Raise(*cell, Cell::kMaybeStop);
            break;
        case EndedBy::kUnknown:
            break;
        case EndedBy::kProgram:
            ++cell->causes[run.termination];
            Row::Raise(*cell, run.IsCrash() ? Cell::kCrash : Cell::kEnd);
    }
}

}  // namespace

std::size_t TimelineCell::CountOf(Cell kind) const
{
    switch (kind) {
        case Cell::kStop:
            return stops;
        case Cell::kMaybeStop:
            return maybe_stops;
        case Cell::kFailed:
            return failed;
        default:
            break;
    }
    std::size_t total = 0;
    for (const auto& [cause, count] : causes) {
        const Cell kind_of_cause = ExitStatusOf(cause) == 0 ? Cell::kEnd : Cell::kCrash;
        total += kind_of_cause == kind ? count : 0;
    }
    return total;
}

std::vector<TimelineCell> Timeline(const ItemReport& item, Milliseconds first, Milliseconds last,
                                   std::size_t count)
{
    Row row(first, last, count);
    for (const KnownPeriod& part : KnownPeriodsOf(item, first, last)) {
        row.AddPart(part);
    }
    for (const Run& run : item.runs) {
        MarkRun(row, run);
    }
    for (const auto* times : {&item.no_program_times, &item.failed_fork_times}) {
        for (const Milliseconds time : *times) {
            if (TimelineCell* cell = row.At(time)) {
                ++cell->failed;
                Row::Raise(*cell, Cell::kFailed);
            }
        }
    }
    return std::move(row).Cells();
}

std::vector<Stretch> Stretches(const std::vector<Cell>& cells)
{
    std::vector<Stretch> stretches;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (stretches.empty() || stretches.back().cell != cells[i]) {
            stretches.push_back({cells[i], i, i});
        }
        stretches.back().end = i + 1;
    }
    return stretches;
}

}  // namespace launchlist
