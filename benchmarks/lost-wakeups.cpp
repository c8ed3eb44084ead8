// lost-wakeups [ROUNDS]: shows what becomes of the wake-ups that the core may lose.
//
// Rounds of "hand one task to a pool of one worker, wait for its end", on the bare core and through
// libktasync: asking the future, and detached, where nobody but the task's own signal tells of the
// end. The worker is on its way to sleep when the next task comes, so a wake-up is lost now and
// then. On the bare core nothing makes up for it: the round would last for ever if it weren't woken
// by hand after 100 ms.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <semaphore.h>

#include <boost/make_shared.hpp>

#include <ktasync/ktasync.h>
#include <ktthread/ktthread.h>

namespace {

using Clock = std::chrono::steady_clock;

const int stallMs = 100;
const int lateMs = 10;

struct Figures {
    int late = 0;
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
        figures.late += ms > lateMs;
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

KT::KTPoolOptions oneWorker()
{
    KT::KTPoolOptions options;
    options.threads = 1;
    options.maxThreads = 1;
    return options;
}

Figures asked(int rounds)
{
    const KT::KTScopedPool pool(oneWorker());
    return measure(rounds, [&pool] { KT::submit(pool, "round", [] {}).get(); });
}

template <typename Submit>
Figures detached(int rounds, const Submit& submit)
{
    const KT::KTScopedPool pool(oneWorker());
    sem_t ended;
    sem_init(&ended, 0, 0);
    const Figures figures = measure(rounds, [&] {
        submit(pool, ended);
        while (sem_wait(&ended) != 0) {
        }
    });
    sem_destroy(&ended);
    return figures;
}

/// Tells of its end; its client doesn't wake the pool.
class Signal : public KT::KTTask {
public:
    explicit Signal(sem_t& toPost) : ended(toPost) {}
    void run() override { sem_post(&ended); }

private:
    sem_t& ended;
};

void print(const char* what, int rounds, const Figures& figures)
{
    std::printf("%-16s %9d rounds  %4d over %d ms  longest %7.1f ms  mean %6.1f us\n", what, rounds,
                figures.late, lateMs, figures.longestMs, figures.seconds * 1e6 / rounds);
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
    print("asked for", rounds, asked(rounds));
    print("submit, dropped", rounds, detached(rounds, [](const auto& pool, sem_t& ended) {
              KT::submit(pool, "round", [&ended] { sem_post(&ended); });
          }));
    print("post", rounds, detached(rounds, [](const auto& pool, sem_t& ended) {
              KT::post(pool, "round", [&ended] { sem_post(&ended); });
          }));
    print("a KTTask", rounds, detached(rounds, [](const auto& pool, sem_t& ended) {
              pool.pool()->enqueue(boost::make_shared<Signal>(ended));
          }));
}
