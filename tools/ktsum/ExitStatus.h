/// What the program ends with.
#pragma once

const int exitDone = 0;
const int exitFailure = 1;  ///< also: not every file is as the list says
const int exitUsage = 2;
