/// Lists of checksums to verify.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <istream>
#include <optional>
#include <string>

#include "Digest.h"
#include "Source.h"

struct CheckLine {
    std::string name;
    std::string digest;  ///< lower-case
};

/// What stands between digest and name in a list. The first line that can be told by says it for
/// all of the list, so that nobody gets at another file by a name that begins with a space or star.
enum class Spacing {
    unknown,
    typed,  ///< a space, and one more or the star of a binary file
    plain,  ///< a space
};

/// Reads one line of a list, without its line end: "DIGEST  NAME", "DIGEST *NAME", "DIGEST NAME" or
/// "TAG (NAME) = DIGEST", each with a backslash in front if the name is escaped. Nothing if it is
/// no such line, or has another algorithm's tag or length, or another spacing than those before.
std::optional<CheckLine> parseCheckLine(const std::string& line, const std::string& tag,
                                        std::size_t hexLength, Spacing& spacing);

/// The line that parseCheckLine reads back, with its line end: "DIGEST  NAME".
std::string formatCheckLine(const CheckLine& line);

/// The entries of a list in a file ("-": standard input), improper lines included. Empty lines and
/// comments (#) are passed over. Holds one line at a time, and of a very long one only its start.
class CheckList : public Source {
public:
    /// Throws std::system_error if the file can't be opened.
    CheckList(const std::string& path, const Digest& digest);

    /// The entries of `list`, which outlives this and is at its start.
    CheckList(std::istream& list, const Digest& digest);

    /// Throws std::system_error if the file can't be read.
    bool next(Entry& entry) override;

private:
    bool readLine(std::string& line);

    bool fromStandardInput;
    std::ifstream file;
    std::istream& input;
    std::string tag;
    std::size_t hexLength;
    Spacing spacing = Spacing::unknown;
    std::uint64_t lineNumber = 0;
};
