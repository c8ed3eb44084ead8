#include <ro/log.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>

#include <pthread.h>

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

// For clang's thread-safety analysis.
#ifdef __clang__
#define RO_GUARDED_BY(mutex) __attribute__((guarded_by(mutex)))
#else
#define RO_GUARDED_BY(mutex)
#endif

namespace ro {
namespace log {

namespace {

/// Keeps the calling thread from being cancelled: a record is written whole or not at all.
class NoCancellation {
public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous); }
    ~NoCancellation() { pthread_setcancelstate(previous, nullptr); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

private:
    int previous = PTHREAD_CANCEL_ENABLE;
};

/// The loggers in use, by category. Never destroyed, because threads may log until the process is
/// gone. spdlog's registry is destroyed at exit; from then on the loggers kept here are used.
class Loggers {
public:
    static Loggers& instance()
    {
        static Loggers* const loggers = new Loggers;
        return *loggers;
    }

    std::shared_ptr<spdlog::logger> find(const std::string& category)
    {
        const std::lock_guard<std::mutex> hold(mutex);
        std::shared_ptr<spdlog::logger>& known = byCategory[category];
        if (!exiting) {
            known = registered(category);
        } else if (!known) {
            known = make(category);
        }
        return known;
    }

private:
    Loggers()
    {
        // The registry is made first, so it is destroyed last. An object, not std::atexit: its
        // destructor stays tied to this library, also where a sanitizer stands in for atexit.
        spdlog::default_logger_raw();
        static const Exit exit{*this};
    }

    /// Destroyed at exit, before spdlog's registry: tells the loggers to leave the registry alone.
    struct Exit {
        ~Exit()
        {
            const std::lock_guard<std::mutex> hold(loggers.mutex);
            loggers.exiting = true;
        }

        Loggers& loggers;
    };

    static std::shared_ptr<spdlog::logger> make(const std::string& category)
    {
        return std::make_shared<spdlog::logger>(category,
                                                std::make_shared<spdlog::sinks::stderr_sink_mt>());
    }

    static std::shared_ptr<spdlog::logger> registered(const std::string& category)
    {
        std::shared_ptr<spdlog::logger> logger = spdlog::get(category);
        if (logger) {
            return logger;
        }
        logger = make(category);
        try {
            spdlog::initialize_logger(logger);
        } catch (const spdlog::spdlog_ex&) {
            // A client registered the same name a moment ago: its logger is the one to use.
            if (std::shared_ptr<spdlog::logger> theirs = spdlog::get(category)) {
                return theirs;
            }
        }
        return logger;
    }

    std::mutex mutex;
    bool exiting RO_GUARDED_BY(mutex) = false;
    std::map<std::string, std::shared_ptr<spdlog::logger>> byCategory RO_GUARDED_BY(mutex);
};

/// Made when the library is loaded: a first record may come when spdlog's registry, which a client
/// used, is gone already.
[[maybe_unused]] const Loggers& madeAtLoad = Loggers::instance();

spdlog::level::level_enum spdlogLevel(int severity)
{
    static const spdlog::level::level_enum levels[] = {
        spdlog::level::critical, spdlog::level::critical, spdlog::level::critical,
        spdlog::level::err,      spdlog::level::warn,     spdlog::level::info,
        spdlog::level::info,     spdlog::level::debug,    spdlog::level::trace};
    return levels[std::clamp(severity, 0, 8)];
}

std::string asOneLine(const std::string& text)
{
    const std::size_t end = !text.empty() && text.back() == '\n' ? text.size() - 1 : text.size();
    std::string line;
    line.reserve(end);
    for (std::size_t i = 0; i < end; ++i) {
        if (text[i] == '\n') {
            line += "\\n";
        } else if (text[i] == '\r') {
            line += "\\r";
        } else {
            line += text[i];
        }
    }
    return line;
}

}  // namespace

void log(int level, const std::string& category, const std::string& file,
         const std::string& function, unsigned line, const std::string& text)
{
    const NoCancellation whole;
    const spdlog::source_loc source(file.c_str(), static_cast<int>(line), function.c_str());
    Loggers::instance().find(category)->log(source, spdlogLevel(level),
                                            spdlog::string_view_t(asOneLine(text)));
}

}  // namespace log
}  // namespace ro
