/// Other pools, each used as its own documentation shows. All have as many workers as they are
/// told, take tasks by `submit`, and have run them all when they are destroyed, or before.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include <Poco/NotificationQueue.h>
#include <Poco/Runnable.h>
#include <Poco/ThreadPool.h>
#include <apr_general.h>
#include <apr_thread_pool.h>
#include <glib.h>
#include <llvm/Support/ThreadPool.h>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#include <QThreadPool>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

/// Boost.Asio's thread_pool.
class AsioPool {
public:
    static const char* name() { return "Boost.Asio"; }
    static constexpr bool givesService = false;
    explicit AsioPool(int workers) : pool(static_cast<std::size_t>(workers)) {}
    ~AsioPool() { pool.join(); }

    template <typename Task>
    void submit(Task task)
    {
        boost::asio::post(pool, std::move(task));
    }

private:
    boost::asio::thread_pool pool;
};

/// oneTBB's arena. A thread of the client's counts among the parallelism that it is told, and would
/// take part only if it waited in the arena.
class TbbPool {
public:
    static const char* name() { return "oneTBB"; }
    static constexpr bool givesService = false;
    explicit TbbPool(int workers)
        : limit(tbb::global_control::max_allowed_parallelism,
                static_cast<std::size_t>(workers) + 1),
          arena(workers + 1, 1)
    {
    }

    template <typename Task>
    void submit(Task task)
    {
        arena.enqueue(std::move(task));
    }

private:
    tbb::global_control limit;
    tbb::task_arena arena;
};

class QtPool {
public:
    static const char* name() { return "QThreadPool"; }
    static constexpr bool givesService = false;
    explicit QtPool(int workers) { pool.setMaxThreadCount(workers); }
    ~QtPool() { pool.waitForDone(); }

    template <typename Task>
    void submit(Task task)
    {
        pool.start(std::function<void()>(std::move(task)));
    }

private:
    QThreadPool pool;
};

/// Runs a function on the heap, for pools that take a C function and a pointer.
template <typename Task>
struct OnHeap {
    Task task;
    static void run(void* self)
    {
        const std::unique_ptr<OnHeap> owned(static_cast<OnHeap*>(self));
        owned->task();
    }
};

class GlibPool {
public:
    static const char* name() { return "GLib"; }
    static constexpr bool givesService = false;
    /// Exclusive: the threads are there from the start. Otherwise they come as they are needed.
    explicit GlibPool(int workers, bool exclusive = true)
        : pool(g_thread_pool_new(run, nullptr, workers, exclusive ? TRUE : FALSE, nullptr))
    {
    }
    ~GlibPool() { g_thread_pool_free(pool, FALSE, TRUE); }

    template <typename Task>
    void submit(Task task)
    {
        g_thread_pool_push(pool, new std::function<void()>(std::move(task)), nullptr);
    }

private:
    static void run(gpointer task, gpointer)
    {
        const std::unique_ptr<std::function<void()>> owned(
            static_cast<std::function<void()>*>(task));
        (*owned)();
    }

    GThreadPool* pool;
};

class AprPool {
public:
    static const char* name() { return "APR-util"; }
    static constexpr bool givesService = false;
    explicit AprPool(int workers) : AprPool(workers, workers) {}
    AprPool(int workers, int most)
    {
        static const apr_status_t initialized = apr_initialize();
        static_cast<void>(initialized);
        apr_pool_create(&memory, nullptr);
        apr_thread_pool_create(&pool, static_cast<apr_size_t>(workers),
                               static_cast<apr_size_t>(most), memory);
    }
    ~AprPool()
    {
        apr_thread_pool_destroy(pool);
        apr_pool_destroy(memory);
    }

    template <typename Task>
    void submit(Task task)
    {
        apr_thread_pool_push(pool, run<Task>, new OnHeap<Task>{std::move(task)}, 0, nullptr);
    }

private:
    template <typename Task>
    static void* APR_THREAD_FUNC run(apr_thread_t*, void* task)
    {
        OnHeap<Task>::run(task);
        return nullptr;
    }

    apr_pool_t* memory = nullptr;
    apr_thread_pool_t* pool = nullptr;
};

/// Poco's ThreadPool has no queue of its own: its documentation pairs it with a NotificationQueue,
/// which its threads serve.
class PocoPool {
public:
    static const char* name() { return "Poco"; }
    static constexpr bool givesService = false;
    explicit PocoPool(int workers) : pool(workers, workers), server(queue)
    {
        for (int i = 0; i < workers; ++i) {
            pool.start(server);
        }
    }
    ~PocoPool()
    {
        for (int i = 0; i < pool.capacity(); ++i) {
            queue.enqueueNotification(new Poco::Notification);
        }
        pool.joinAll();
    }

    template <typename Task>
    void submit(Task task)
    {
        queue.enqueueNotification(new Work(std::move(task)));
    }

private:
    struct Work : Poco::Notification {
        explicit Work(std::function<void()> toDo) : task(std::move(toDo)) {}
        std::function<void()> task;
    };

    struct Server : Poco::Runnable {
        explicit Server(Poco::NotificationQueue& toServe) : queue(toServe) {}
        void run() override
        {
            // A notification that is no work ends a thread.
            for (;;) {
                Poco::AutoPtr<Poco::Notification> next(queue.waitDequeueNotification());
                auto* const work = dynamic_cast<Work*>(next.get());
                if (work == nullptr) {
                    return;
                }
                work->task();
            }
        }
        Poco::NotificationQueue& queue;
    };

    Poco::NotificationQueue queue;
    Poco::ThreadPool pool;
    Server server;
};

class LlvmPool {
public:
    static const char* name() { return "LLVM"; }
    static constexpr bool givesService = false;
    explicit LlvmPool(int workers)
        : pool(llvm::hardware_concurrency(static_cast<unsigned>(workers)))
    {
    }

    template <typename Task>
    void submit(Task task)
    {
        pool.async(std::move(task));
    }

private:
    llvm::ThreadPool pool;
};
