/// \file
/// The platform's log: records with a severity and a category, written through spdlog.
///
/// Each category is a spdlog logger of that name. One that the client registered with spdlog
/// beforehand is used as it is; otherwise libro registers one that writes to standard error, which
/// the client gets with `spdlog::get(category)` and redirects, filters or formats by spdlog's own
/// means. Everything here may be called from any thread, also while the process exits.
///
/// \ingroup ro
#pragma once

#include <sstream>
#include <string>

#include <ro/export.h>

namespace ro {
namespace log {

/// Writes one record. Blocks only as long as the category's sinks do.
///
/// `level` is a severity as syslog(3) numbers them: 0 emergency, 1 alert and 2 critical become
/// spdlog's critical, 3 err, 4 warn, 5 notice and 6 information info, 7 debug; a greater one
/// becomes trace. `file`, `line` and `function` go into the record's source location.
///
/// A record is one complete line: one line end at the end of `text` is dropped, as the sink ends
/// the line itself, and a line end inside it is written as the two characters `\n` (`\r` likewise).
/// The calling thread can't be cancelled meanwhile. May throw std::bad_alloc; what a sink throws,
/// spdlog's error handler gets.
///
/// \param level     the severity, 0 to 7
/// \param category  the logger's name
/// \param file      the source file; empty where there is none to tell
/// \param function  the function in it
/// \param line      its line; 0 where there is none to tell
/// \param text      the record, copied before this returns
/// \ingroup ro
RO_EXPORT void log(int level, const std::string& category, const std::string& file,
                   const std::string& function, unsigned line, const std::string& text);

/// Builds the text of one record, which is written when the stream is destroyed:
/// \code
/// ro::log::LogStream(4, "billing", __FILE__, __func__, __LINE__) << "retry " << n << std::endl;
/// \endcode
/// Belongs to one thread, and can't be copied. It owns the text alone, and blocks only where it is
/// destroyed, as `log` does. The destructor throws nothing: a record that can't be written is lost.
///
/// \ingroup ro
class RO_EXPORT LogStream {
public:
    /// Keeps copies of its arguments, which are those of `log`. Throws std::bad_alloc.
    ///
    /// \param level     the severity, 0 to 7
    /// \param category  the logger's name
    /// \param file      the source file
    /// \param function  the function in it
    /// \param line      its line
    LogStream(int level, const std::string& category, const std::string& file,
              const std::string& function, unsigned line);
    /// Writes the record.
    ~LogStream();

    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    /// Appends what `value` is written as. Throws what its own `operator<<` throws.
    ///
    /// \param value  anything that a std::ostream takes
    /// \return       this stream
    template <typename Value>
    LogStream& operator<<(const Value& value)
    {
        text << value;
        return *this;
    }

    /// For manipulators such as std::endl.
    ///
    /// \param manipulator  is called with the text's stream
    /// \return             this stream
    LogStream& operator<<(std::ostream& (*manipulator)(std::ostream&))
    {
        text << manipulator;
        return *this;
    }

private:
    int level;
    std::string category;
    std::string file;
    std::string function;
    unsigned line;
    std::ostringstream text;
};

}  // namespace log
}  // namespace ro
