/// libFuzzer's way to the reader of checksum lists.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Finding.h"
#include "ListRules.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    try {
        checkList(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const Finding& finding) {
        std::fprintf(stderr, "%s\n", finding.what());
        std::abort();
    }
    return 0;
}
