/// rapidcheck, with as many cases as the environment says: RC_PARAMS, or else KT_CASES
/// of the build times KT_SCALE.
#pragma once

#include <unistd.h>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "Finding.h"

/// Fails the property on what `run` finds. The watchdog of tests/support watches each case anew.
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
