#include "Warnings.h"

#include <exception>
#include <ostream>
#include <string>

#include <kterror/KTError.h>
#include <ro/log.h>

#include "Cancellation.h"

namespace KT {
namespace detail {

namespace {

const int warning = 4;

std::string describe(const std::exception_ptr& error)
{
    try {
        std::rethrow_exception(error);
    } catch (const KTError& known) {
        // A client's own need not be a std::exception.
        return known.toString();
    } catch (const std::exception& known) {
        return known.what();
    } catch (...) {
        // Thrown right above: it can't be the forced unwinding.
        return "an exception that is no std::exception";
    }
}

}  // namespace

void logUnseen(std::string_view task, const std::exception_ptr& error)
{
    logWarning("exception", [&] {
        return "task '" + std::string(task) +
               "' failed, and nobody asked for its result: " + describe(error);
    });
}

void logWarning(const char* function, const std::function<std::string()>& makeText)
{
    const NoCancellation off;
    try {
        ro::log::LogStream(warning, "ktasync", "", function, 0) << makeText() << std::endl;
    } catch (const std::exception&) {
        // No memory.
    }
}

}  // namespace detail
}  // namespace KT
