#include "Results.h"

#include "CheckList.h"
#include "Names.h"
#include "Output.h"

namespace {

std::string counted(std::uint64_t count, const char* one, const char* many)
{
    return "WARNING: " + std::to_string(count) + ' ' + (count == 1 ? one : many);
}

}  // namespace

Results::Results(const Options& chosen, const Digest& used) : options(chosen), digest(used) {}

void Results::add(const Sum& sum)
{
    if (options.checkFile) {
        addCheck(sum);
    } else {
        addSum(sum);
    }
}

void Results::addSum(const Sum& sum)
{
    if (!sum.error.empty()) {
        ++unreadable;
        complain(asPrinted(sum.entry.path) + ": " + sum.error);
        return;
    }
    print(formatCheckLine({sum.entry.path, sum.digest}));
}

void Results::addCheck(const Sum& sum)
{
    ++proper;
    // Where it verifies, sha256sum escapes for the sake of the line only.
    const std::string& path = sum.entry.path;
    const std::string name = path.find('\n') != std::string::npos ? asPrinted(path) : path;
    if (!sum.error.empty()) {
        if (options.ignoreMissing && sum.isMissing) {
            return;
        }
        ++unreadable;
        complain(asPrinted(path) + ": " + sum.error);
        if (!options.status) {
            print(name + ": FAILED open or read\n");
        }
        return;
    }
    const bool matches = sum.digest == sum.entry.expected;
    ++(matches ? matched : mismatched);
    if (!options.status && !(matches && options.quiet)) {
        print(name + (matches ? ": OK\n" : ": FAILED\n"));
    }
}

void Results::addImproperLine(std::uint64_t number)
{
    ++improper;
    if (options.warn) {
        complain(listName() + ": " + std::to_string(number) + ": improperly formatted " +
                 digest.tag() + " checksum line");
    }
}

int Results::finish()
{
    const int status = options.checkFile ? finishCheck() : (unreadable > 0 ? 1 : 0);
    flushOutput();
    return status;
}

int Results::finishCheck()
{
    if (proper == 0) {
        complain(listName() + ": no properly formatted checksum lines found");
        return 1;
    }
    if (!options.status) {
        if (improper > 0) {
            complain(counted(improper, "line is improperly formatted",
                             "lines are improperly formatted"));
        }
        if (unreadable > 0) {
            complain(counted(unreadable, "listed file could not be read",
                             "listed files could not be read"));
        }
        if (mismatched > 0) {
            complain(counted(mismatched, "computed checksum did NOT match",
                             "computed checksums did NOT match"));
        }
        if (options.ignoreMissing && matched == 0) {
            complain(listName() + ": no file was verified");
        }
    }
    const bool good =
        matched > 0 && mismatched == 0 && unreadable == 0 && (!options.strict || improper == 0);
    return good ? 0 : 1;
}

std::string Results::listName() const
{
    return *options.checkFile == "-" ? "standard input" : asPrinted(*options.checkFile);
}
