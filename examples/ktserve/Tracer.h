/// The work of /trace.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include <ktasync/KTScopedPool.h>
#include <ktasync/KTTraceRecorder.h>

/// Records timelines of a pool, one at a time. Any thread may use it.
class Tracer {
public:
    /// \param toWatch  kept by reference
    explicit Tracer(const KT::KTScopedPool& toWatch) : pool(toWatch) {}

    /// Records for that time, or until `end` is called, or for 32 MiB. Blocks for that. Meanwhile
    /// it is in a file without a name in the folder for temporary files, of which a crash leaves
    /// nothing.
    ///
    /// \return  JSON. Throws HttpError: 503 while another one is recorded, after `end`, and if
    ///          there is no thread or descriptor for it; 507 if the file can't be written; 500 if
    ///          there can be no file, or it can't be read
    std::string record(std::chrono::seconds time);

    /// What is being recorded ends now, and nothing else will be recorded. Doesn't block.
    void end();

private:
    class Turn;

    void waitForEnd(const KT::KTTraceRecorder& trace, int file, std::chrono::seconds time);

    const KT::KTScopedPool& pool;
    std::mutex mutex;
    // `mutex`
    bool isRecording = false;
    bool isEnding = false;
    std::condition_variable ending;
};
