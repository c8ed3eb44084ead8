/// What is said of each file, and of all of them in the end.
#pragma once

#include <cstdint>
#include <string>

#include "Digest.h"
#include "Options.h"
#include "Sum.h"

/// Prints the results given to it, in the order given. Throws OutputError where it prints. Belongs
/// to one thread.
class Results {
public:
    /// Both must outlive it.
    Results(const Options& options, const Digest& digest);

    void add(const Sum& sum);
    void addImproperLine(std::uint64_t number);

    /// Prints what there is to say of a whole list. The program's exit status: 0 or 1.
    int finish();

private:
    void addSum(const Sum& sum);
    void addCheck(const Sum& sum);
    int finishCheck();
    std::string listName() const;

    const Options& options;
    const Digest& digest;
    std::uint64_t unreadable = 0;
    std::uint64_t mismatched = 0;
    std::uint64_t matched = 0;
    std::uint64_t proper = 0;
    std::uint64_t improper = 0;
};
