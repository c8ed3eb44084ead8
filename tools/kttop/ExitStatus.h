/// What the program ends with.
#pragma once

const int exitDone = 0;
const int exitFailure = 1;
const int exitUsage = 2;
const int exitProcessEnded = 3;  ///< while it was watched
