#pragma once

#include <ktthread/requirements.h>

/// Marks what libktthread exports; everything else in the library is hidden.
#define KTTHREAD_EXPORT __attribute__((visibility("default")))
