// lost-wakeups [ROUNDS]: shows what becomes of the wake-ups that the core may lose.
//
// Rounds of "hand one task to a pool of one worker, wait for its end", on the bare core and through
// libktasync. The worker is on its way to sleep when the next task comes, so a wake-up is lost now
// and then. On the bare core nothing makes up for it: a round that takes longer than 100 ms counts
// as stalled, and would stall for ever if it weren't woken then by hand.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <boost/make_shared.hpp>

#include <ktasync/ktasync.h>
#include <ktthread/ktthread.h>

namespace {

using Clock = std::chrono::steady_clock;

const int stallMs = 100;

struct Figures {
    int stalls = 0;
    double longestMs = 0;
    double seconds = 0;
};

/// A task that tells of its end.
class Round : public KT::KTTask {
public:
    void run() override
    {
        const KT::KTCriticalSection hold(mutex);
        isDone = true;
        done->signal();
    }

    /// False once it has waited for as long as that.
    bool waitFor(int milliseconds)
    {
        const KT::KTCriticalSection hold(mutex);
        const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
        while (!isDone && Clock::now() < end) {
            done->waitFor(mutex, milliseconds);
        }
        return isDone;
    }

private:
    const boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    const boost::shared_ptr<KT::KTCondition> done = KT::KTCondition::createKTCondition();
    bool isDone = false;
};

template <typename OneRound>
Figures measure(int rounds, const OneRound& oneRound)
{
    Figures figures;
    const auto start = Clock::now();
    for (int i = 0; i < rounds; ++i) {
        const auto begin = Clock::now();
        oneRound();
        const double ms = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
        figures.longestMs = std::max(figures.longestMs, ms);
        figures.stalls += ms > stallMs;
    }
    figures.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return figures;
}

Figures onTheCore(int rounds)
{
    const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    const Figures figures = measure(rounds, [&pool] {
        const auto task = boost::make_shared<Round>();
        pool->enqueue(task);
        while (!task->waitFor(stallMs)) {
            pool->wake();
        }
    });
    pool->close();
    return figures;
}

Figures throughTheLibrary(int rounds)
{
    KT::KTPoolOptions options;
    options.threads = 1;
    options.maxThreads = 1;
    const KT::KTScopedPool pool(options);
    return measure(rounds, [&pool] { KT::submit(pool, "round", [] {}).get(); });
}

void print(const char* what, int rounds, const Figures& figures)
{
    std::printf("%-14s %9d rounds  %4d stalled for over %d ms  longest %7.1f ms  mean %6.1f us\n",
                what, rounds, figures.stalls, stallMs, figures.longestMs,
                figures.seconds * 1e6 / rounds);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv)
{
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 1000000;
    if (rounds < 1) {
        std::fprintf(stderr, "lost-wakeups: '%s' is no number of rounds\n", argv[1]);
        return 2;
    }
    print("bare core", rounds, onTheCore(rounds));
    print("libktasync", rounds, throughTheLibrary(rounds));
}
