#pragma once

/// Marks what libro exports; everything else in the library is hidden.
#define RO_EXPORT __attribute__((visibility("default")))
