#include <ktasync/detail/Pieces.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kterror/KTError.h>
#include <ktthread/KTThreadPool.h>

#include <ktasync/KTCancelled.h>
#include <ktasync/detail/Bound.h>
#include <ktasync/detail/Group.h>

#include "../base/Cancellation.h"

namespace KT {
namespace detail {

namespace {

/// Enough to share among many threads, and few enough to cost little. Not a matter of the machine:
/// a result that depends on the pieces is to be the same everywhere.
const std::size_t automaticPieces = 256;

/// The pieces of one loop, handed out in their order to the threads that take part.
class Loop {
public:
    Loop(const Pieces& all, void (*callPiece)(void*, Piece), void* callContext)
        : pieces(all), call(callPiece), context(callContext)
    {
    }

    /// Does pieces until there are no more, or until one of them throws. Cut short, by an exception
    /// or by force, it leaves none for the others.
    void work()
    {
        std::exception_ptr error;
        try {
            doPieces();
        } catch (...) {
            error = std::current_exception();
            if (!error) {
                unwindOn();
            }
        }
        const std::lock_guard<std::mutex> hold(mutex);
        if (error && !first) {
            first = std::move(error);
        }
    }

    /// When nobody works any more: throws what a piece threw first, or KTCancelled if one was cut
    /// off.
    void finish(std::string_view name)
    {
        if (first) {
            std::rethrow_exception(std::exchange(first, nullptr));
        }
        if (done != pieces.number()) {
            throw KTCancelled(std::string(name));
        }
    }

private:
    struct Stop {
        explicit Stop(Loop& cut) : loop(cut) {}
        ~Stop() { loop.next = loop.pieces.number(); }
        Stop(const Stop&) = delete;
        Stop& operator=(const Stop&) = delete;
        Loop& loop;
    };

    void doPieces()
    {
        const Stop stopIfCutShort(*this);
        for (;;) {
            const std::size_t number = next.fetch_add(1, std::memory_order_relaxed);
            if (number >= pieces.number()) {
                return;
            }
            call(context, pieces.at(number));
            done.fetch_add(1, std::memory_order_relaxed);
        }
    }

    const Pieces& pieces;
    void (*const call)(void*, Piece);
    void* const context;
    std::atomic<std::size_t> next{0};
    std::atomic<std::size_t> done{0};
    std::mutex mutex;
    std::exception_ptr first;  ///< under `mutex`
};

/// The workers that help with a loop; they are through with it when this is destroyed.
class Helpers {
public:
    explicit Helpers(const KTPoolRef& pool) : group(new Group(pool, 0)) {}

    /// Left before `finish` has ended: the memory ran out, or the thread was cancelled.
    ~Helpers()
    {
        if (!isFinished) {
            group->close(true);
        }
    }

    Helpers(const Helpers&) = delete;
    Helpers& operator=(const Helpers&) = delete;

    void start(std::size_t number, Loop& loop)
    {
        const auto work = [&loop] { loop.work(); };
        std::vector<boost::intrusive_ptr<GroupJob>> jobs(number);
        for (boost::intrusive_ptr<GroupJob>& job : jobs) {
            job = new GroupCall<BoundOf<decltype(work)>>(group, group->name().view(), work);
        }
        group->startAll(jobs);
    }

    /// Waits for those that have begun.
    void finish()
    {
        group->dropWaiting();
        group->wait(-1);
        isFinished = true;
    }

private:
    boost::intrusive_ptr<Group> group;
    bool isFinished = false;
};

}  // namespace

Pieces::Pieces(std::size_t numberOfPasses, std::ptrdiff_t grain) : passes(numberOfPasses)
{
    if (grain < 0) {
        throw KTError("ktasync", "parallel loop",
                      "grain is " + std::to_string(grain) + ": it must be 0 or more", __FILE__,
                      __LINE__);
    }
    const std::size_t automatic = passes / automaticPieces + (passes % automaticPieces != 0);
    size = std::max<std::size_t>(grain > 0 ? static_cast<std::size_t>(grain) : automatic, 1);
    count = passes / size + (passes % size != 0);
}

void refuseBounds()
{
    throw KTError("ktasync", "parallel loop",
                  "one bound is negative, and the other one too large for 64 bits with a sign",
                  __FILE__, __LINE__);
}

Piece Pieces::at(std::size_t number) const
{
    const std::size_t begin = number * size;
    return {number, begin, begin + std::min(size, passes - begin)};
}

void runPieces(const KTPoolRef& pool, const Pieces& pieces, void (*piece)(void* context, Piece p),
               void* context)
{
    if (pieces.number() == 0) {
        return;
    }
    Loop loop(pieces, piece, context);
    Helpers helpers(pool);
    const int workers = pool.pool()->status().threads;
    helpers.start(std::min(pieces.number() - 1, static_cast<std::size_t>(std::max(workers, 0))),
                  loop);
    loop.work();
    helpers.finish();
    loop.finish(pool.defaultName().view());
}

}  // namespace detail
}  // namespace KT
