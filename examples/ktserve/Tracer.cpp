#include "Tracer.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <kterror/KTError.h>

#include "Descriptor.h"
#include "HttpError.h"

namespace {

using Clock = std::chrono::steady_clock;

/// It is answered from memory.
const off_t mostBytes = 32 * 1024 * 1024;

/// How often the file is looked at.
const std::chrono::milliseconds lookPeriod(100);

int statusOf(int error)
{
    switch (error) {
        case EMFILE:
        case ENFILE: return 503;
        case ENOSPC:
        case EDQUOT: return 507;
        default: return 500;
    }
}

/// Without a name.
Descriptor temporaryFile()
{
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    std::string name = (folder / "ktserve-XXXXXX").string();
    Descriptor file(error ? -1 : mkostemp(name.data(), O_CLOEXEC));
    if (file.get() < 0) {
        const int reason = error ? error.value() : errno;
        throw HttpError(statusOf(reason), "there can be no temporary file: " +
                                              std::generic_category().message(reason));
    }
    unlink(name.c_str());
    return file;
}

off_t sizeOf(int file)
{
    struct stat status = {};
    return fstat(file, &status) == 0 ? status.st_size : 0;
}

std::string contentOf(int file)
{
    std::string text(static_cast<std::size_t>(sizeOf(file)), '\0');
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t size = pread(file, &text[done], text.size() - done, static_cast<off_t>(done));
        if (size == 0 || (size < 0 && errno != EINTR)) {
            throw HttpError(500, "the timeline can't be read");
        }
        done += static_cast<std::size_t>(std::max<ssize_t>(size, 0));
    }
    return text;
}

}  // namespace

/// For a scope, the only one to record.
class Tracer::Turn {
public:
    explicit Turn(Tracer& ofTracer) : tracer(ofTracer)
    {
        const std::lock_guard<std::mutex> hold(tracer.mutex);
        if (tracer.isRecording || tracer.isEnding) {
            throw HttpError(503, tracer.isEnding ? "about to end" : "another timeline is recorded");
        }
        tracer.isRecording = true;
    }
    ~Turn()
    {
        const std::lock_guard<std::mutex> hold(tracer.mutex);
        tracer.isRecording = false;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    Tracer& tracer;
};

std::string Tracer::record(std::chrono::seconds time)
{
    const Turn turn(*this);
    const Descriptor file = temporaryFile();
    try {
        KT::KTTraceRecorder trace(pool, "/proc/self/fd/" + std::to_string(file.get()));
        waitForEnd(trace, file.get(), time);
        trace.flush();
        if (trace.hasFailed()) {
            throw HttpError(507, "the timeline can't be written");
        }
    } catch (const KT::KTError& error) {
        throw HttpError(507, std::string("the timeline can't be written: ") + error.what());
    } catch (const std::system_error&) {
        throw HttpError(503, "there is no thread for the timeline");
    }
    return contentOf(file.get());
}

void Tracer::waitForEnd(const KT::KTTraceRecorder& trace, int file, std::chrono::seconds time)
{
    const Clock::time_point deadline = Clock::now() + time;
    std::unique_lock<std::mutex> hold(mutex);
    while (!isEnding && Clock::now() < deadline && !trace.hasFailed() && sizeOf(file) < mostBytes) {
        ending.wait_until(hold, std::min(deadline, Clock::now() + lookPeriod));
    }
}

void Tracer::end()
{
    const std::lock_guard<std::mutex> hold(mutex);
    isEnding = true;
    ending.notify_all();
}
