/// The table of workers.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "History.h"
#include "Page.h"

enum class Column {
    tid,
    state,
    task,
    pool,
    cpu,
    wait,
    cpuTime,
    since,
    voluntary,
    involuntary,
    kernel,
    waitsIn
};

const int columnCount = 12;

/// Shares, times and rates: the largest first. The others: the smallest first. Reversed: the other
/// way round. What isn't known comes last either way; equals are sorted by tid.
struct Sorting {
    Column column = Column::state;
    bool reverse = false;
};

const char* titleOf(Column column);

/// Whether it shows details.
bool isDetail(Column column);

/// Whether a worker's task or pool is one that is looked for. The case of letters doesn't matter,
/// and since the kernel cuts names, "image-resize" finds "image-r".
bool matches(const WorkerReading& worker, const std::string& filter);

/// The workers that match, sorted. The pointers are to those of the snapshot.
std::vector<const Worker*> selectWorkers(const Snapshot& snapshot, const std::string& filter,
                                         const Sorting& sorting);

/// The columns that all of the pools' names take; 0: no worker's pool has a name.
std::size_t poolColumns(const Snapshot& snapshot);

struct TableLayout {
    std::size_t width;
    std::size_t poolWidth;
    std::vector<Column> columns;  ///< in their order on the screen
};

/// The columns that there is room for. POOL is one only if a worker's pool has a name; where not
/// all fit, the names have a fifth of the width at most.
TableLayout layoutFor(const Snapshot& snapshot, std::size_t width);

Line tableHeader(const TableLayout& layout, const Sorting& sorting);
Line tableRow(const Worker& worker, const TableLayout& layout, bool utf8);
