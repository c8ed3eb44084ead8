/// \file
/// What a pool did, as a timeline to look at.
#pragma once

#include <memory>
#include <string>

#include <ktasync/KTPoolRef.h>
#include <ktasync/KTScopedPool.h>
#include <ktasync/export.h>

namespace KT {

/// Writes what becomes of a pool's tasks to a file in Chrome's trace-event format, which Perfetto
/// and chrome://tracing show:
/// \code
/// KT::KTScopedPool pool;
/// KT::KTTraceRecorder trace(pool, "render.json");
/// \endcode
/// A lane a thread; on it a slice for each task, with its name (15 bytes of it), how long it waited
/// in the queue
/// (`waited_us`, microseconds) and its outcome (`done`, `failed`, `cancelled`); a task that ended
/// without having begun is a mark in the lane of the thread that dropped it. Two tracks of counters
/// show the pool's workers, busy and idle, and the queue; they change only in steps of the
/// sampling. The names of lanes and tracks begin with that of the pool, if it has one.
///
/// It tells of tasks of this library that were submitted since; the counters know all tasks. A
/// slice is written when its task has ended, so those that still run at the end are not in the
/// file.
///
/// The file is a JSON array after each write, also after a crash: what is not yet in it then is at
/// most 64 KiB, and no older than a second (or `sampleMs`, if that is more). It needs no more
/// memory than that, however long it records; when the disk is slower than the tasks, they wait for
/// it. An error in writing ends the recording, with one log record (category "ktasync", a warning),
/// and `hasFailed` tells; the file keeps what it has. In a child of the process that made it (fork)
/// it does nothing.
///
/// Several may record the same pool, into different files. Constructing and destroying it may
/// happen on any thread, while the pool works. It has a thread of its own, named "KTTrace". It
/// can't be copied. It shares the pool.
///
/// \ingroup ktasync
class KTASYNC_EXPORT KTTraceRecorder {
public:
    /// Makes `file`, or empties it. Blocks for as long as the disk does. Throws KTError if the file
    /// can't be written, and for a `sampleMs` below 1; std::bad_alloc; std::system_error if the
    /// thread can't be made.
    ///
    /// \param pool      is kept alive, and may be closed
    /// \param file      its path
    /// \param sampleMs  milliseconds between two looks at the counters, which are written when they
    ///                  have changed; 1 or more
    KTTraceRecorder(const KTPoolRef& pool, const std::string& file, int sampleMs = 5);

    /// Writes what it still has, and blocks for that. If it never comes to that, the process writes
    /// it when it ends, but for _exit and for a crash.
    ~KTTraceRecorder();

    KTTraceRecorder(const KTTraceRecorder&) = delete;
    KTTraceRecorder& operator=(const KTTraceRecorder&) = delete;

    /// Writes what it has so far. Blocks for as long as the disk does. Any thread may call it.
    void flush();

    /// Whether an error in writing has ended the recording. What ended last may not have been tried
    /// yet: `flush` comes first. Blocks while something is being written. Any thread may call it.
    /// False in a child of the process that made it.
    ///
    /// \return  true: the file lacks what came after the error
    bool hasFailed() const;

private:
    class Recording;
    std::unique_ptr<Recording> recording;
};

}  // namespace KT
