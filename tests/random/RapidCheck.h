/// rapidcheck, with as many cases as the environment says: RC_PARAMS, or else KT_CASES
/// of the build times KT_SCALE.
#pragma once

#include <unistd.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Finding.h"

/// Fails the property on what `run` finds. It sets the watchdog again for each case.
template <typename Run>
void failOnFinding(Run run)
{
    alarm(120);
    try {
        run();
    } catch (const Finding& finding) {
        RC_FAIL(finding.what());
    }
}
