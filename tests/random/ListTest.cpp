/// Random lists of checksums: what ktsum writes it reads back, and whatever it reads it takes apart
/// or refuses.
#include <cstdint>
#include <string>
#include <vector>

#include "ListRules.h"
#include "RapidCheck.h"

namespace {

/// Names of all bytes that a name may have, and names of the difficult ones.
rc::Gen<std::string> anyName()
{
    const std::string nasty = "\\\\\\nnr\r\n **()=# \t-aA0\xff\xc3\xa9\x01";
    const auto ofNasty = rc::gen::container<std::string>(rc::gen::elementOf(nasty));
    const auto byte = rc::gen::map(rc::gen::resize(100, rc::gen::arbitrary<std::uint8_t>()),
                                   [](std::uint8_t b) { return static_cast<char>(b | (b == 0)); });
    return rc::gen::nonEmpty(rc::gen::oneOf(ofNasty, rc::gen::container<std::string>(byte)));
}

rc::Gen<std::string> anyDigest()
{
    return rc::gen::container<std::string>(64, rc::gen::elementOf(std::string("0123456789abcdef")));
}

RC_GTEST_PROP(RandomLists, AreReadAsTheyWereWritten, ())
{
    std::vector<CheckLine> lines;
    for (const std::string& name : *rc::gen::container<std::vector<std::string>>(anyName())) {
        lines.push_back({name, *anyDigest()});
    }
    failOnFinding([&lines] { checkReadsBack(lines); });
}

RC_GTEST_PROP(RandomLists, OfPiecesAreTakenApartOrRefused, ())
{
    const std::vector<std::string> pieces = {std::string(64, 'a'),
                                             std::string(64, 'A'),
                                             std::string(63, '0'),
                                             "SHA256 (",
                                             ") = ",
                                             "  ",
                                             " *",
                                             " ",
                                             "\\",
                                             "\\n",
                                             "\n",
                                             "\n",
                                             "\r\n",
                                             "name",
                                             "#",
                                             "\xff",
                                             std::string(1, '\0'),
                                             std::string(70000, 'x')};
    std::string text;
    for (const std::string& piece :
         *rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(pieces))) {
        text += piece;
    }
    failOnFinding([&text] { checkList(text); });
}

}  // namespace
