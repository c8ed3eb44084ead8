#include "Capture.h"

#include <iostream>
#include <utility>

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

ConsoleCapture::ConsoleCapture(std::function<void()> onWrite)
    : look(std::move(onWrite)), previous(std::cout.rdbuf(this))
{
}

ConsoleCapture::~ConsoleCapture()
{
    std::cout.rdbuf(previous);
}

std::string ConsoleCapture::text() const
{
    const std::lock_guard<std::mutex> hold(mutex);
    return written;
}

ConsoleCapture::int_type ConsoleCapture::overflow(int_type character)
{
    const std::lock_guard<std::mutex> hold(mutex);
    written += traits_type::to_char_type(character);
    return character;
}

std::streamsize ConsoleCapture::xsputn(const char* data, std::streamsize size)
{
    if (look) {
        look();
    }
    const std::lock_guard<std::mutex> hold(mutex);
    written.append(data, static_cast<std::size_t>(size));
    return size;
}

FailingConsole::FailingConsole() : previous(std::cout.rdbuf(this))
{
    std::cout.exceptions(std::ios_base::badbit);
}

FailingConsole::~FailingConsole()
{
    std::cout.exceptions(std::ios_base::goodbit);
    std::cout.rdbuf(previous);  // which clears the state
}

class LogCapture::Sink : public spdlog::sinks::base_sink<std::mutex> {
public:
    std::vector<LogRecord> records()
    {
        const std::lock_guard<std::mutex> hold(mutex_);
        return kept;
    }

private:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        kept.push_back({static_cast<int>(message.level),
                        message.source.filename != nullptr ? message.source.filename : "",
                        message.source.funcname != nullptr ? message.source.funcname : "",
                        message.source.line,
                        std::string(message.payload.data(), message.payload.size())});
    }
    void flush_() override {}

    std::vector<LogRecord> kept;
};

LogCapture::LogCapture(const std::string& name) : category(name), sink(std::make_shared<Sink>())
{
    spdlog::drop(category);
    spdlog::register_logger(std::make_shared<spdlog::logger>(category, sink));
    spdlog::get(category)->set_level(spdlog::level::trace);
}

LogCapture::~LogCapture()
{
    spdlog::drop(category);
}

std::vector<LogRecord> LogCapture::records() const
{
    return sink->records();
}
