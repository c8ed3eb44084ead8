/// kttop --once.
#pragma once

#include "Options.h"
#include "Source.h"

/// Prints one sample. The exit status. Throws ProcessError and RecordingError.
int runOnce(Source& source, const Options& options, bool utf8);
