#pragma once

#include <ktthread/requirements.h>

/// Marks what libktasync and libktasync-metrics export; everything else in them is hidden.
#define KTASYNC_EXPORT __attribute__((visibility("default")))

/// Hides a class, or a function of a class, that is declared inside of an exported one.
#define KTASYNC_HIDDEN __attribute__((visibility("hidden")))
