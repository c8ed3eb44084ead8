/// A client's own log: what it is given, between brackets, on standard output.
#pragma once

#include <cstdio>
#include <sstream>
#include <string>

namespace ro {
namespace log {

class LogStream {
public:
    LogStream(int recordLevel, const char* recordCategory, const char* sourceFile,
              const char* sourceFunction, unsigned sourceLine)
        : level(recordLevel),
          category(recordCategory),
          file(sourceFile),
          function(sourceFunction),
          line(sourceLine)
    {
    }
    ~LogStream()
    {
        std::printf("client log %d [%s] [%s] [%s] %u [%s]\n", level, category, file, function, line,
                    text.str().c_str());
    }

    template <typename Value>
    LogStream& operator<<(const Value& value)
    {
        text << value;
        return *this;
    }
    LogStream& operator<<(std::ostream& (*manipulator)(std::ostream&))
    {
        text << manipulator;
        return *this;
    }

private:
    int level;
    const char* category;
    const char* file;
    const char* function;
    unsigned line;
    std::ostringstream text;
};

}  // namespace log
}  // namespace ro
