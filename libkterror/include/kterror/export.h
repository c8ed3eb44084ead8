#pragma once

/// Marks what libkterror exports; everything else in the library is hidden.
#define KTERROR_EXPORT __attribute__((visibility("default")))
