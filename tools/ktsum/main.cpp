/// ktsum: checksums of files and directory trees, in parallel.
#include <exception>
#include <stdexcept>
#include <system_error>

#include "Interrupt.h"
#include "Names.h"
#include "Output.h"
#include "Run.h"

namespace {

const int failure = 1;
const int badUsage = 2;

int runWith(const Options& options)
{
    try {
        return Run(options).go();
    } catch (const OutputError& error) {
        if (!error.closed) {
            complain(error.what());
        }
    } catch (const std::invalid_argument& error) {
        complain(error.what());
        return badUsage;
    } catch (const std::system_error& error) {
        complain(asPrinted(options.checkFile.value_or("")) + ": " + error.code().message());
    } catch (const std::exception& error) {
        complain(error.what());
    }
    return failure;
}

}  // namespace

int main(int argc, char** argv)
{
    int exitStatus = 0;
    const std::optional<Options> options = parseOptions(argc, argv, exitStatus);
    if (!options) {
        return exitStatus;
    }
    watchForInterrupts();
    return runWith(*options);
}
