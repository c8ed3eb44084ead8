#pragma once

/// Marks what libktasync exports; everything else in the library is hidden.
#define KTASYNC_EXPORT __attribute__((visibility("default")))

/// Hides a class, or a function of a class, that is declared inside of an exported one.
#define KTASYNC_HIDDEN __attribute__((visibility("hidden")))
