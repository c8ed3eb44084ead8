#include "ListRules.h"

#include <algorithm>
#include <sstream>

#include "Finding.h"

namespace {

const Digest& sha256()
{
    static const Digest digest("sha256");
    return digest;
}

bool isDigest(const std::string& text)
{
    return text.size() == sha256().hexLength() &&
           text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

void checkList(const std::string& text)
{
    std::istringstream input(text);
    CheckList list(input, sha256());
    const auto lineEnds = std::count(text.begin(), text.end(), '\n');
    std::vector<CheckLine> lines;
    std::uint64_t lastImproper = 0;
    Entry entry;
    while (list.next(entry)) {
        require(entry.error.empty(), "an entry of a list has an error");
        if (entry.improperLine != 0) {
            require(entry.improperLine > lastImproper, "improper lines out of order");
            lastImproper = entry.improperLine;
            require(entry.path.empty() && entry.expected.empty(), "an improper line has a name");
            continue;
        }
        require(entry.path.find('\0') == std::string::npos, "no such name");
        require(isDigest(entry.expected), "no such digest");
        if (!entry.path.empty()) {  // no list is written with an empty name
            lines.push_back({entry.path, entry.expected});
        }
    }
    require(lastImproper <= static_cast<std::uint64_t>(lineEnds) + 1, "more lines than there are");
    checkReadsBack(lines);
}

void checkReadsBack(const std::vector<CheckLine>& lines)
{
    std::string text;
    for (const CheckLine& line : lines) {
        text += formatCheckLine(line);
    }
    std::istringstream input(text);
    CheckList list(input, sha256());
    Entry entry;
    for (const CheckLine& line : lines) {
        require(list.next(entry), "a line is missing");
        require(entry.improperLine == 0, "a line of ours is improper");
        require(entry.path == line.name, "a name comes back as another: " + formatCheckLine(line));
        require(entry.expected == line.digest, "a digest comes back as another");
    }
    require(!list.next(entry), "there are more lines than were written");
}
