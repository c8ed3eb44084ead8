/// What there is to sum, one entry after the other, so that memory doesn't grow with the number of
/// files.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct Entry {
    std::string path;      ///< as it is printed; "-" is standard input
    std::string error;     ///< not empty: it can't be summed, for this reason
    std::string expected;  ///< the digest to compare with, lower-case; empty: print the digest
    /// Not 0: no file, but the line of this number in the list, which can't be understood.
    std::uint64_t improperLine = 0;
};

class Source {
public:
    virtual ~Source() = default;

    /// The next entry; false at the end.
    virtual bool next(Entry& entry) = 0;
};

/// The part of a source that is the `part`-th of `parts` (from 1), all of about the same number of
/// entries. The parts one after the other are the whole, in its order. `whole` and `counted` are
/// two sources of the same entries: the latter is read to its end at once.
class Shard : public Source {
public:
    Shard(std::unique_ptr<Source> whole, Source& counted, std::uint64_t part, std::uint64_t parts);
    bool next(Entry& entry) override;

private:
    std::unique_ptr<Source> whole;
    std::uint64_t left;
};
