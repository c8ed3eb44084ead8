/// libFuzzer's entry to the lists of checksums. Its bytes are read as a list, and written as names.
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "Finding.h"
#include "ListRules.h"

namespace {

/// Between NULs, the bytes are names.
std::vector<CheckLine> linesWith(const std::string& text)
{
    std::vector<CheckLine> lines;
    std::istringstream names(text);
    for (std::string name; std::getline(names, name, '\0');) {
        // A line longer than any name makes is not read.
        if (!name.empty() && name.size() < 30000) {
            lines.push_back({name, std::string(64, 'a')});
        }
    }
    return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        checkList(text);
        checkReadsBack(linesWith(text));
    } catch (const Finding& finding) {
        std::fprintf(stderr, "%s\n", finding.what());
        std::abort();
    }
    return 0;
}
