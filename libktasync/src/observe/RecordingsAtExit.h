/// Timelines that are still written when the process ends.
#pragma once

#include <mutex>
#include <set>

#include <ktthread/annotations.h>

namespace KT {
namespace detail {

/// What can be written.
class Unwritten {
public:
    virtual void flush() = 0;

protected:
    ~Unwritten() = default;
};

/// Flushes those that nobody destroyed before the end of the process. Any thread may use it. A
/// forked child starts without any: those of its parent aren't its own.
class RecordingsAtExit {
public:
    /// Never destroyed: static objects may record until the very end.
    static RecordingsAtExit& instance();

    /// Throws std::bad_alloc.
    void add(Unwritten& recording);
    /// Blocks while the recordings are flushed. After it, `recording` isn't used any more.
    void remove(Unwritten& recording);

private:
    struct Flusher;

    RecordingsAtExit();
    static void lockBeforeFork() KT_NOT_ANALYSED;
    static void unlockAfterFork() KT_NOT_ANALYSED;
    static void renewInChild() KT_NOT_ANALYSED;
    void flush();

    std::mutex mutex;
    std::set<Unwritten*> recordings KT_GUARDED_BY(mutex);
};

}  // namespace detail
}  // namespace KT
