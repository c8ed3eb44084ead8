/// This project's pool, by the core and by libktasync.
#pragma once

#include <utility>

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
        pool->enqueue(boost::shared_ptr<KT::KTTask>(new Task<Body>(std::move(body))));
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

private:
    static KT::KTPoolOptions optionsFor(int workers, int most)
    {
        KT::KTPoolOptions options;
        options.threads = workers;
        options.maxThreads = most;
        return options;
    }

    KT::KTScopedPool pool;
};
