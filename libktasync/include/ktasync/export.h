#pragma once

/// Marks what libktasync exports; everything else in the library is hidden.
#define KTASYNC_EXPORT __attribute__((visibility("default")))
