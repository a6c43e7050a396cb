#include "tools/launchlist/output/timeline.h"

#include <algorithm>

namespace launchlist {

namespace {

class Row
{
public:
    Row(Milliseconds first, Milliseconds last, std::size_t count)
        : m_first(first), m_span(std::max<Milliseconds>(last - first, 1)), m_cells(count)
    {
    }

    void Mark(Milliseconds time, Cell cell) { MarkCell(IndexOf(time), cell); }

    void MarkAll(Milliseconds from, Milliseconds to, Cell cell)
    {
        for (std::size_t i = IndexOf(from); i <= IndexOf(to); ++i) {
            MarkCell(i, cell);
        }
    }

    std::vector<Cell> Cells() && { return std::move(m_cells); }

private:
    std::size_t IndexOf(Milliseconds time) const
    {
        const double part = static_cast<double>(time - m_first) / static_cast<double>(m_span);
        const double index = part * static_cast<double>(m_cells.size());
        return std::min(static_cast<std::size_t>(std::max(index, 0.0)), m_cells.size() - 1);
    }

    void MarkCell(std::size_t index, Cell cell) { m_cells[index] = std::max(m_cells[index], cell); }

    const Milliseconds m_first;
    const Milliseconds m_span;
    std::vector<Cell> m_cells;
};

void MarkRun(Row& row, const Run& run, bool is_running, Milliseconds last)
{
    if (run.is_failed) {
        row.Mark(run.start ? *run.start : run.end.value_or(last), Cell::kFailed);
        return;
    }
    if (run.start && run.end) {
        row.MarkAll(*run.start, *run.end, Cell::kRunning);
    } else if (run.start) {
        row.MarkAll(*run.start, is_running ? last : *run.start, Cell::kRunning);
    }
    if (run.end) {
        row.Mark(*run.end, run.is_clean ? Cell::kEnd : Cell::kCrash);
    }
}

}  // namespace

std::vector<Cell> Timeline(const ItemReport& item, Milliseconds first, Milliseconds last,
                           std::size_t count)
{
    Row row(first, last, count);
    for (std::size_t i = 0; i < item.runs.size(); ++i) {
        const bool is_running = item.state == State::kRunning && i + 1 == item.runs.size();
        MarkRun(row, item.runs[i], is_running, last);
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
