/// What stands on the screen.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "History.h"
#include "Page.h"
#include "Table.h"

/// What is shown.
struct Scene {
    ProcessIdentity process;
    Snapshot snapshot;
    bool recorded = false;   ///< it is a replay
    bool recording = false;  ///< it is written to a file meanwhile
    std::string notice;      ///< a line in place of the keys; empty: none
};

/// How it is shown: what keys change.
struct ViewState {
    Sorting sorting;
    std::string filter;
    bool editingFilter = false;
    bool paused = false;
    bool help = false;
    std::size_t first = 0;  ///< row on the page
};

/// The rows of a page of that size.
struct Rows {
    std::vector<const Worker*> workers;  ///< all that match the filter, sorted
    std::size_t first = 0;               ///< of them on the page
    std::size_t visible = 0;
};

/// The pointers are to the snapshot's workers.
Rows rowsFor(const Snapshot& snapshot, const ViewState& state, Size size);

/// A page of that size, with every line as wide as the page at most.
Page buildPage(const Scene& scene, const ViewState& state, Size size, bool utf8);

/// All of it as lines of text, as wide as need be: for --once.
std::string asText(const Scene& scene, bool utf8);
