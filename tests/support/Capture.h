/// What the library writes: console lines and log records.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <streambuf>
#include <string>
#include <vector>

/// Everything written to std::cout while it lives, from any thread.
class ConsoleCapture : private std::streambuf {
public:
    /// \param onWrite  called on the thread that writes, before it has written
    explicit ConsoleCapture(std::function<void()> onWrite = nullptr);
    ~ConsoleCapture() override;

    std::string text() const;

private:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* data, std::streamsize size) override;

    const std::function<void()> look;
    mutable std::mutex mutex;
    std::string written;
    std::streambuf* previous;
};

/// While it lives, std::cout takes no character, and throws std::ios_base::failure when it is asked
/// to.
class FailingConsole : private std::streambuf {
public:
    FailingConsole();
    ~FailingConsole() override;

private:
    std::streambuf* previous;
};

struct LogRecord {
    int level;  ///< spdlog's
    std::string file;
    std::string function;
    int line;
    std::string text;
};

/// The records of one category while it lives, redirected as a client does it: by a spdlog logger
/// of that name.
class LogCapture {
public:
    explicit LogCapture(const std::string& category);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogRecord> records() const;

private:
    class Sink;
    std::string category;
    std::shared_ptr<Sink> sink;
};
