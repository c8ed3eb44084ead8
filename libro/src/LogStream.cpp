#include <ro/log.h>

#include <exception>

namespace ro {
namespace log {

LogStream::LogStream(int recordLevel, const std::string& recordCategory,
                     const std::string& sourceFile, const std::string& sourceFunction,
                     unsigned sourceLine)
    : level(recordLevel),
      category(recordCategory),
      file(sourceFile),
      function(sourceFunction),
      line(sourceLine)
{
}

LogStream::~LogStream()
{
    try {
        log(level, category, file, function, line, text.str());
    } catch (const std::exception&) {
        // There is nowhere left to say it. No forced unwinding can arrive here: log() cannot be
        // cancelled.
    }
}

}  // namespace log
}  // namespace ro
