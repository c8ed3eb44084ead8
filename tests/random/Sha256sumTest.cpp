/// Random lists of checksums, verified by ktsum and by sha256sum, which must say the same.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <sys/wait.h>

#include "Digest.h"
#include "Names.h"
#include "RapidCheck.h"
#include "TemporaryDirectory.h"

namespace {

/// What breaks a line. No NUL: sha256sum takes it for the end of the name, ktsum refuses the line.
const std::string pieces = "\\\\\\nnr\r\n **()=# \t-aA0\xff\xc3\xa9\x01";

/// Files with difficult names, and what the two programs say about a list.
class Both {
public:
    Both()
    {
        const char* const names[] = {"a",    "b b", " a", "*a",    "a\nb",  "a\\",  "\\a", "a\\nb",
                                     "a\rb", "a\r", "a)", "(a) =", "#a",    "\xff", "-a",  "a  b",
                                     "a\t",  "\ta", "\n", "aa",    "a = b", "A",    "\\",  "a*"};
        for (const char* name : names) {
            std::ofstream(directory.path + "/" + name, std::ios::binary) << "content";
            files.emplace_back(name);
        }
        const std::string list = directory.path + "/a";
        right = digestOf(Digest("sha256"), list, [](std::size_t) { return true; });
    }

    struct Verdict {
        int status;
        std::string output;
        std::string warnings;
    };

    Verdict verdictOf(const std::string& program, const std::string& list) const
    {
        std::ofstream(directory.path + "/list", std::ios::binary) << list;
        const std::string command = "cd " + directory.path + " && LC_ALL=C " + program +
                                    " --check list >../out 2>../errors";
        const int status = std::system(command.c_str());
        return {WEXITSTATUS(status), contentOf("/../out"), warningsIn(contentOf("/../errors"))};
    }

    std::vector<std::string> files;
    std::string right;  ///< the digest of each file

private:
    std::string contentOf(const std::string& name) const
    {
        std::ifstream file(directory.path + name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// The lines without file names, which sha256sum quotes in its own way.
    static std::string warningsIn(const std::string& errors)
    {
        std::istringstream lines(errors);
        std::string found;
        for (std::string line; std::getline(lines, line);) {
            const std::size_t start = line.find("WARNING: ");
            const std::size_t none = line.find("no properly formatted");
            found += start != std::string::npos  ? line.substr(start) + "\n"
                     : none != std::string::npos ? "none\n"
                                                 : "";
        }
        return found;
    }

    TemporaryDirectory directory;
};

const Both& both()
{
    static const Both made;
    return made;
}

/// The bytes choose a file, the shape of the line, and what is broken in it.
using LineBytes = std::array<std::uint8_t, 6>;

std::string lineOf(const LineBytes& bytes)
{
    const std::string& name = both().files[bytes[0] % both().files.size()];
    std::string digest = both().right;
    if (bytes[1] % 8 == 0) {
        digest[0] = digest[0] == '0' ? '1' : '0';
    }
    const bool isEscaped = bytes[1] % 16 < 12 ? needsEscape(name) : bytes[1] % 2 == 0;
    const std::string shown = isEscaped ? escaped(name) : name;
    std::string line = isEscaped ? "\\" : "";
    switch (bytes[2] % 8) {
        case 0: line += digest + " *" + shown; break;
        case 1: line += "SHA256 (" + shown + ") = " + digest; break;
        case 2: line += digest + " " + shown; break;
        default: line += digest + "  " + shown;
    }
    const std::size_t place = bytes[3] % (line.size() + 1);
    const char piece = pieces[bytes[4] % pieces.size()];
    switch (bytes[5] % 8) {
        case 0: line.insert(place, 1, piece); break;
        case 1: line.erase(place, 1); break;
        case 2: line.insert(0, 1, piece); break;
        case 3: line += '\r'; break;
        case 4: line.insert(line.size() - line.size() % (place + 1), 1, piece); break;
        default: break;
    }
    return line + (bytes[5] == 255 ? "" : "\n");
}

RC_GTEST_PROP(RandomLists, AreVerifiedAsSha256sumDoes, ())
{
    const auto bytes = rc::gen::resize(100, rc::gen::arbitrary<LineBytes>());
    alarm(120);  // the watchdog of tests/support: it is set again for each list
    std::string list;
    for (const LineBytes& line :
         *rc::gen::scale(0.3, rc::gen::container<std::vector<LineBytes>>(bytes))) {
        list += lineOf(line);
    }
    RC_LOG() << list;
    const Both::Verdict ours = both().verdictOf(KT_KTSUM, list);
    const Both::Verdict theirs = both().verdictOf("sha256sum", list);
    RC_ASSERT(ours.output == theirs.output);
    RC_ASSERT(ours.warnings == theirs.warnings);
    RC_ASSERT(ours.status == theirs.status);
}

}  // namespace
