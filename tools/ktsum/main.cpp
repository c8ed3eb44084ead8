/// ktsum: checksums of files and directory trees, in parallel.
#include <exception>
#include <stdexcept>
#include <system_error>

#include "ExitStatus.h"
#include "Interrupt.h"
#include "Names.h"
#include "Output.h"
#include "Run.h"

namespace {

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
        return exitUsage;
    } catch (const std::system_error& error) {
        complain(asPrinted(options.checkFile.value_or("")) + ": " + error.code().message());
    } catch (const std::exception& error) {
        complain(error.what());
    }
    return exitFailure;
}

}  // namespace

int main(int argc, char** argv)
{
    int exitStatus = exitDone;
    const std::optional<Options> options = parseOptions(argc, argv, exitStatus);
    if (!options) {
        return exitStatus;
    }
    watchForInterrupts();
    return runWith(*options);
}
