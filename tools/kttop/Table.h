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
    cpu,
    wait,
    cpuTime,
    since,
    voluntary,
    involuntary,
    kernel,
    waitsIn
};

const int columnCount = 11;

/// Shares, times and rates: the largest first. The others: the smallest first. Reversed: the other
/// way round. What isn't known comes last either way; equals are sorted by tid.
struct Sorting {
    Column column = Column::state;
    bool reverse = false;
};

const char* titleOf(Column column);

/// Whether it shows details.
bool isDetail(Column column);

/// Whether a worker's task is one that is looked for. The case of letters doesn't matter, and since
/// the kernel cuts names, "image-resize" finds "image-r".
bool matches(const WorkerReading& worker, const std::string& filter);

/// The workers that match, sorted. The pointers are to those of the snapshot.
std::vector<const Worker*> selectWorkers(const Snapshot& snapshot, const std::string& filter,
                                         const Sorting& sorting);

/// The columns that there is room for, in their order on the screen.
std::vector<Column> columnsFor(std::size_t width);

Line tableHeader(const std::vector<Column>& columns, const Sorting& sorting, std::size_t width);
Line tableRow(const Worker& worker, const std::vector<Column>& columns, std::size_t width,
              bool utf8);
