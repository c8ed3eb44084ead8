/// This project's pool, by the core and by libktasync.
#pragma once

#include <utility>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <ktasync/ktasync.h>
#include <ktthread/ktthread.h>

/// The core, with a task class for the body.
class CorePool {
public:
    static const char* name() { return "libktthread"; }
    static constexpr bool givesService = true;
    explicit CorePool(int workers) : CorePool(workers, workers, 0) {}
    CorePool(int workers, int most, int period)
        : pool(new KT::KTThreadPool(workers, most, period, 0, 0))
    {
        pool->init(workers, most, period, 0, 0);
    }
    ~CorePool() { pool->close(); }
    CorePool(const CorePool&) = delete;
    CorePool& operator=(const CorePool&) = delete;

    template <typename Body>
    void submit(Body body)
    {
        pool->enqueue(boost::make_shared<Task<Body>>(std::move(body)));
    }
    void wake() { pool->wake(); }

private:
    template <typename Body>
    struct Task : KT::KTTask {
        explicit Task(Body bodyToRun) : body(std::move(bodyToRun)) {}
        void run() override { body(); }
        Body body;
    };

    boost::shared_ptr<KT::KTThreadPool> pool;
};

/// libktasync: post.
class AsyncPool {
public:
    static const char* name() { return "libktasync"; }
    static constexpr bool givesService = true;
    explicit AsyncPool(int workers) : AsyncPool(workers, workers) {}
    AsyncPool(int workers, int most) : pool(optionsFor(workers, most)) {}

    template <typename Body>
    void submit(Body body)
    {
        KT::post(pool, "undefined", std::move(body));
    }
    void wake() { pool.pool()->wake(); }

    static KT::KTPoolOptions optionsFor(int workers, int most)
    {
        KT::KTPoolOptions options;
        options.threads = workers;
        options.maxThreads = most;
        return options;
    }

protected:
    explicit AsyncPool(const KT::KTPoolOptions& options) : pool(options) {}
    const KT::KTScopedPool& scoped() const { return pool; }

private:
    KT::KTScopedPool pool;
};

/// The same, of a pool whose workers look for the next task for a while before they sleep.
class SpinningPool : public AsyncPool {
public:
    explicit SpinningPool(int workers) : AsyncPool(spinning(workers)) {}

private:
    static KT::KTPoolOptions spinning(int workers)
    {
        KT::KTPoolOptions options = optionsFor(workers, workers);
        options.spinUs = 1000;
        return options;
    }
};
