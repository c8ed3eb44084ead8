/// Files of samples: JSON lines, the first of which is a header. docs/kttop.md has the format.
#pragma once

#include <cstdint>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

#include "Sample.h"

/// A file can't be written, or is no recording; `what` has its name, and the line.
class RecordingError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

class RecordingWriter {
public:
    /// Replaces the file. Throws RecordingError, as `write` does.
    RecordingWriter(const std::string& file, const ProcessIdentity& process, double interval);

    /// The sample is in the file, not in a buffer of ours, when this returns.
    void write(const Sample& sample);

private:
    void writeLine(const std::string& line);

    const std::string path;
    std::ofstream out;
};

class RecordingReader {
public:
    /// Reads the header. Throws RecordingError, as `next` does.
    explicit RecordingReader(const std::string& file);

    const ProcessIdentity& process() const { return identity; }

    /// Nothing at the end.
    std::optional<Sample> next();

private:
    bool readLine();
    template <typename Read>
    void parsed(Read read);
    [[noreturn]] void fail(const std::string& what) const;

    const std::string path;
    std::ifstream in;
    std::string text;
    std::uint64_t line = 0;
    ProcessIdentity identity;
    std::int64_t lastNs = 0;
};
