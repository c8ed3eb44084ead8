#include "Warnings.h"

#include <exception>
#include <ostream>
#include <string>

#include <kterror/KTError.h>
#include <ro/log.h>

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

std::string poolLabel(std::string_view name)
{
    return name.empty() ? std::string() : "pool '" + std::string(name) + "': ";
}

void logUnseen(std::string_view label, std::string_view task, const std::exception_ptr& error)
{
    logWarning("exception", [&] {
        return std::string(label) + "task '" + std::string(task) +
               "' failed, and nobody asked for its result: " + describe(error);
    });
}

void writeWarning(const char* function, const std::string& text)
{
    ro::log::LogStream(warning, "ktasync", "", function, 0) << text << std::endl;
}

}  // namespace detail
}  // namespace KT
