/// Counts over time as one line of blocks.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "History.h"

/// One block a value, as high as its share of `top`. Nothing but 0 has the lowest block.
std::string sparkline(const std::vector<double>& values, double top, bool utf8);

/// The history in so many columns at most, the newest last.
struct HistoryLine {
    std::vector<double> running;
    std::vector<double> sleeping;
    double top = 1;      ///< the most workers that there were
    double seconds = 0;  ///< from the first sample to the last
};

/// Each column is the mean of 1, 2, 4, 8, ... samples. Which ones go together doesn't change from
/// one sample to the next, so that the line moves and doesn't flicker.
HistoryLine historyLine(const std::deque<Moment>& moments, std::size_t columns);
