/// Random programs for the pool, made by rapidcheck, which makes those that fail shorter and prints
/// its seed: the same RC_PARAMS in the environment repeats a run.
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "Finding.h"
#include "ManyClients.h"
#include "OneClient.h"
#include "Program.h"
#include "RapidCheck.h"

namespace {

Program anyProgram()
{
    const auto setup = rc::gen::resize(100, rc::gen::arbitrary<SetupBytes>());
    const auto step = rc::gen::resize(100, rc::gen::arbitrary<StepBytes>());
    return makeProgram(*setup, *rc::gen::container<std::vector<StepBytes>>(step));
}

/// Once a program has failed, shorter ones are given several chances to fail in the same way: with
/// many threads they may not the first time.
template <typename Run>
void check(int chances, Run run)
{
    static bool hasFailed = false;
    const Program program = anyProgram();
    alarm(120);  // the watchdog of tests/support: it is set again for each program
    try {
        for (int i = 0; i < (hasFailed ? chances : 1); ++i) {
            run(program);
        }
    } catch (const Finding& finding) {
        hasFailed = true;
        std::ostringstream text;
        text << finding.what() << "\n" << program;
        // At once: rapidcheck's report in the end is of another run, which may pass.
        std::cerr << text.str();
        RC_FAIL(text.str());
    }
}

RC_GTEST_PROP(RandomUse, ByOneClientIsWhatTheModelSays, ())
{
    check(1, OneClient::run);
}

RC_GTEST_PROP(RandomUse, ByManyClientsKeepsWhatThePoolPromises, ())
{
    check(20, ManyClients::run);
}

}  // namespace
