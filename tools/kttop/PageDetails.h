/// Sparing the costly files of /proc of those workers that aren't looked at.
#pragma once

#include "History.h"
#include "Source.h"
#include "View.h"

/// Reads the details that the last sample lacks for the rows on a page of that size, and for some
/// beyond it, which a key may bring onto it before the next sample: none is stale then, and most
/// are known. All of them, where there are few or samples are far apart.
void readDetailsOfPage(Source& source, History& history, const ViewState& state, Size size);
