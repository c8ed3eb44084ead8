/// rapidcheck, with as many cases as the environment says: RC_PARAMS, or else KT_SCALE.
#pragma once

#include <sstream>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Finding.h"

/// A property that fails on what `run` finds.
template <typename Run>
void failOnFinding(Run run)
{
    try {
        run();
    } catch (const Finding& finding) {
        RC_FAIL(finding.what());
    }
}
