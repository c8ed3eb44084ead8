/// libFuzzer's entry to the random programs. Its bytes are a program: of many clients if the first
/// byte is odd, else of a single one.
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "Finding.h"
#include "ManyClients.h"
#include "OneClient.h"
#include "Program.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const Program program = readProgram(data + 1, size - 1);
    try {
        data[0] % 2 == 1 ? ManyClients::run(program) : OneClient::run(program);
    } catch (const Finding& finding) {
        std::cerr << finding.what() << "\n" << program;
        std::abort();
    }
    return 0;
}
