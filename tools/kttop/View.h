/// What stands on the screen.
#pragma once

#include <string>

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

/// A page of that size, with every line as wide as the page at most.
Page buildPage(const Scene& scene, const ViewState& state, Size size, bool utf8);

/// All of it as lines of text, as wide as need be: for --once.
std::string asText(const Scene& scene, bool utf8);
