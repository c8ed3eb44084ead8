#include <ktasync/detail/Pieces.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <string>
#include <vector>

#include <kterror/KTError.h>
#include <ktthread/KTThreadPool.h>

#include <ktasync/KTCancelled.h>
#include <ktasync/detail/Bound.h>
#include <ktasync/detail/Group.h>

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

    /// Does pieces until there are no more. Left by an exception, or cut off, it leaves none.
    void work()
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

    /// To be asked when nobody works any more.
    bool isComplete() const { return done == pieces.number(); }

private:
    struct Stop {
        explicit Stop(Loop& cut) : loop(cut) {}
        ~Stop() { loop.next = loop.pieces.number(); }
        Stop(const Stop&) = delete;
        Stop& operator=(const Stop&) = delete;
        Loop& loop;
    };

    const Pieces& pieces;
    void (*const call)(void*, Piece);
    void* const context;
    std::atomic<std::size_t> next{0};
    std::atomic<std::size_t> done{0};
};

/// The workers that help with a loop; they are through with it when this is destroyed.
class Helpers {
public:
    explicit Helpers(const KTPoolRef& pool) : group(new Group(pool, 0)) {}

    /// Left before `finish` is through: the caller's own exception is on its way, or its thread was
    /// cancelled.
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
        const std::string_view name = group->pool().defaultName().view();
        const auto work = [&loop] { loop.work(); };
        std::vector<boost::intrusive_ptr<Job>> jobs(number);
        for (boost::intrusive_ptr<Job>& job : jobs) {
            job = new GroupCall<BoundOf<decltype(work)>>(group, name, work);
        }
        group->startAll(jobs, name);
    }

    /// Waits for those that have begun, and throws what one of them threw.
    void finish()
    {
        group->dropWaiting();
        group->wait(-1);
        isFinished = true;
        if (const std::exception_ptr first = group->settle().first) {
            std::rethrow_exception(first);
        }
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

void refuseNegativeBound()
{
    throw KTError("ktasync", "parallel loop",
                  "one bound is negative, and the other one of an unsigned type", __FILE__,
                  __LINE__);
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
    if (!loop.isComplete()) {
        throw KTCancelled(std::string(pool.defaultName().view()));
    }
}

}  // namespace detail
}  // namespace KT
