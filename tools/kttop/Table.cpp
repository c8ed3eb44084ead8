#include "Table.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>

#include "Text.h"
#include "ThreadName.h"

namespace {

struct Format {
    const char* title;
    std::size_t width;
    bool right;       ///< aligned
    int rank;         ///< where there is too little room, the higher ones go
    bool descending;  ///< the largest first
};

/// In the order of Column.
const std::array<Format, columnCount> formats = {{
    {"TID", 7, true, 0, false},
    {"STATE", 8, false, 1, false},
    {"TASK", 7, false, 2, false},
    {"POOL", 4, false, 3, false},  // at least: see layoutFor
    {"CPU%", 5, true, 4, true},
    {"WAIT%", 5, true, 6, true},
    {"TIME+", 9, true, 7, true},
    {"SINCE", 8, true, 5, true},
    {"VOL/S", 5, true, 8, true},
    {"INV/S", 5, true, 9, true},
    {"S", 1, false, 10, false},
    {"WAITS IN", 8, false, 11, false},
}};

/// A name has no more; a recording may.
const std::size_t widestPool = 31;

/// This part of the width is for the pools' names, where the other columns need the rest.
const std::size_t shareForPools = 5;

const Format& formatOf(Column column)
{
    return formats.at(static_cast<std::size_t>(column));
}

std::string lowered(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool hasTask(const WorkerReading& worker)
{
    return worker.state == WorkerState::running || worker.state == WorkerState::finished;
}

bool isKnown(Column column, const Worker& worker)
{
    switch (column) {
        case Column::pool: return !worker.reading.pool.empty();
        case Column::cpu: return worker.hasRates;
        case Column::wait: return worker.hasRates && worker.reading.waitNs;
        case Column::voluntary:
        case Column::involuntary: return worker.hasSwitchRates;
        case Column::kernel: return worker.reading.hasDetails;
        case Column::waitsIn: return worker.reading.hasDetails && !worker.reading.waitsIn.empty();
        default: return true;
    }
}

template <typename Value>
int compared(const Value& a, const Value& b)
{
    return a < b ? -1 : static_cast<int>(b < a);
}

int comparedBy(Column column, const Worker& a, const Worker& b)
{
    switch (column) {
        case Column::tid: return compared(a.reading.tid, b.reading.tid);
        case Column::state: return compared(a.reading.state, b.reading.state);
        case Column::task: return compared(a.reading.task, b.reading.task);
        case Column::pool: return compared(a.reading.pool, b.reading.pool);
        case Column::cpu: return compared(a.cpuPercent, b.cpuPercent);
        case Column::wait: return compared(a.waitPercent, b.waitPercent);
        case Column::cpuTime: return compared(a.reading.cpuNs, b.reading.cpuNs);
        case Column::since: return compared(a.stateSeconds, b.stateSeconds);
        case Column::voluntary: return compared(a.voluntaryRate, b.voluntaryRate);
        case Column::involuntary: return compared(a.involuntaryRate, b.involuntaryRate);
        case Column::kernel: return compared(a.reading.kernelState, b.reading.kernelState);
        case Column::waitsIn: break;
    }
    return compared(a.reading.waitsIn, b.reading.waitsIn);
}

std::string taskOf(const WorkerReading& worker, bool utf8)
{
    if (!hasTask(worker)) {
        return "";
    }
    return worker.task.empty() ? "(none)" : shown(worker.task, utf8);
}

std::string cellText(Column column, const Worker& worker, bool utf8)
{
    const WorkerReading& reading = worker.reading;
    if (!isKnown(column, worker)) {
        return "-";
    }
    switch (column) {
        case Column::tid: return std::to_string(reading.tid);
        case Column::state: return nameOf(reading.state);
        case Column::task: return taskOf(reading, utf8);
        case Column::pool: return shown(reading.pool, utf8);
        case Column::cpu: return asPercent(worker.cpuPercent);
        case Column::wait: return asPercent(worker.waitPercent);
        case Column::cpuTime: return asCpuTime(reading.cpuNs);
        case Column::since:
            return asDuration(worker.stateSeconds) + (worker.sinceBefore ? "+" : " ");
        case Column::voluntary: return asRate(worker.voluntaryRate);
        case Column::involuntary: return asRate(worker.involuntaryRate);
        case Column::kernel: return shown(std::string(1, reading.kernelState), false);
        case Column::waitsIn: break;
    }
    return shown(reading.waitsIn, false);
}

Style styleOf(WorkerState state)
{
    switch (state) {
        case WorkerState::running:
        case WorkerState::finished: return Style::running;
        case WorkerState::idle: return Style::idle;
        case WorkerState::fresh: return Style::fresh;
        case WorkerState::sleeping: break;
    }
    return Style::sleeping;
}

/// The columns' cells with a blank between them, cut at the width. The last column has all the
/// rest.
Line lineOf(const TableLayout& layout, const std::function<Span(Column)>& cell)
{
    Line line;
    std::size_t left = layout.width;
    for (const Column column : layout.columns) {
        Span span = cell(column);
        const bool last = column == layout.columns.back();
        const Format& format = formatOf(column);
        const std::size_t width = column == Column::pool ? layout.poolWidth : format.width;
        const std::size_t room = std::min(left, last && !format.right ? left : width);
        span.text = format.right ? paddedLeft(span.text, room) : padded(span.text, room);
        left -= room;
        const Style style = span.style;
        line.push_back(std::move(span));
        const std::size_t gap = last ? left : std::min<std::size_t>(left, 1);
        line.push_back({std::string(gap, ' '), style});
        left -= gap;
    }
    return line;
}

/// For the pools' names, on a screen of that width.
std::size_t roomForPools(std::size_t width)
{
    std::size_t others = 0;
    for (const Format& format : formats) {
        others += &format == &formatOf(Column::pool) ? 0 : format.width + 1;
    }
    return std::max(
        {formatOf(Column::pool).width, width / shareForPools, width - std::min(width, others)});
}

}  // namespace

const char* titleOf(Column column)
{
    return formatOf(column).title;
}

bool isDetail(Column column)
{
    return column == Column::voluntary || column == Column::involuntary ||
           column == Column::kernel || column == Column::waitsIn;
}

bool matches(const WorkerReading& worker, const std::string& filter)
{
    if (filter.empty()) {
        return true;
    }
    const std::string wanted = lowered(filter);
    if (lowered(worker.pool).find(wanted) != std::string::npos) {
        return true;
    }
    if (!hasTask(worker)) {
        return false;
    }
    const std::string task = lowered(worker.task);
    const bool cut = task.size() == keptTaskBytes;
    return task.find(wanted) != std::string::npos ||
           (cut && wanted.compare(0, task.size(), task) == 0);
}

std::vector<const Worker*> selectWorkers(const Snapshot& snapshot, const std::string& filter,
                                         const Sorting& sorting)
{
    std::vector<const Worker*> selected;
    for (const Worker& worker : snapshot.workers) {
        if (matches(worker.reading, filter)) {
            selected.push_back(&worker);
        }
    }
    const bool descending = formatOf(sorting.column).descending != sorting.reverse;
    std::sort(selected.begin(), selected.end(), [&](const Worker* a, const Worker* b) {
        if (isKnown(sorting.column, *a) != isKnown(sorting.column, *b)) {
            return isKnown(sorting.column, *a);
        }
        const int order = comparedBy(sorting.column, *a, *b);
        return order != 0 ? (order < 0) != descending : a->reading.tid < b->reading.tid;
    });
    return selected;
}

std::size_t poolColumns(const Snapshot& snapshot)
{
    std::size_t widest = 0;
    for (const Worker& worker : snapshot.workers) {
        if (isKnown(Column::pool, worker)) {
            const std::size_t taken = columnsOf(shown(worker.reading.pool, true));
            widest = std::max({widest, taken, formatOf(Column::pool).width});
        }
    }
    return std::min(widest, widestPool);
}

TableLayout layoutFor(const Snapshot& snapshot, std::size_t width)
{
    TableLayout layout{width, std::min(poolColumns(snapshot), roomForPools(width)), {}};
    std::array<bool, columnCount> chosen{};
    std::size_t taken = 0;
    for (int rank = 0; rank < columnCount; ++rank) {
        for (std::size_t i = 0; i < formats.size(); ++i) {
            const bool isPool = static_cast<Column>(i) == Column::pool;
            if (formats.at(i).rank != rank || (isPool && layout.poolWidth == 0)) {
                continue;
            }
            taken += (isPool ? layout.poolWidth : formats.at(i).width) + (rank == 0 ? 0 : 1);
            chosen.at(i) = taken <= width || rank == 0;
        }
    }
    for (std::size_t i = 0; i < formats.size(); ++i) {
        if (chosen.at(i)) {
            layout.columns.push_back(static_cast<Column>(i));
        }
    }
    return layout;
}

Line tableHeader(const TableLayout& layout, const Sorting& sorting)
{
    return lineOf(layout, [&](Column column) {
        // A blank where the times have their mark.
        const std::string title =
            std::string(titleOf(column)) + (column == Column::since ? " " : "");
        return Span{title, column == sorting.column ? Style::sorted : Style::header};
    });
}

Line tableRow(const Worker& worker, const TableLayout& layout, bool utf8)
{
    return lineOf(layout, [&](Column column) {
        const bool named = column == Column::state || column == Column::task;
        return Span{cellText(column, worker, utf8),
                    named ? styleOf(worker.reading.state) : Style::plain};
    });
}
