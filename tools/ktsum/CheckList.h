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

/// Reads one line of a list, without its line end: "DIGEST  NAME", "DIGEST *NAME" or
/// "TAG (NAME) = DIGEST", each with a backslash in front if the name is escaped. Nothing if it is
/// no such line, or has another algorithm's tag or length.
std::optional<CheckLine> parseCheckLine(const std::string& line, const std::string& tag,
                                        std::size_t hexLength);

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
    std::uint64_t lineNumber = 0;
};
