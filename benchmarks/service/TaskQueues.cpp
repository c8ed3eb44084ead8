#include "TaskQueues.h"

#include <stdexcept>
#include <utility>

#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>

#include <ktasync/KTScopedPool.h>
#include <ktasync/post.h>

namespace {

class OurQueue : public httplib::TaskQueue {
public:
    void enqueue(std::function<void()> connection) override
    {
        KT::post(pool, "http", std::move(connection));
    }
    void shutdown() override { pool.close(); }

private:
    KT::KTScopedPool pool;
};

class AsioQueue : public httplib::TaskQueue {
public:
    void enqueue(std::function<void()> connection) override
    {
        boost::asio::post(pool, std::move(connection));
    }
    void shutdown() override { pool.join(); }

private:
    boost::asio::thread_pool pool;
};

}  // namespace

std::function<httplib::TaskQueue*()> taskQueueOf(const std::string& name)
{
    if (name == "libktasync") {
        return [] { return new OurQueue; };
    }
    if (name == "Boost.Asio") {
        return [] { return new AsioQueue; };
    }
    if (name == "cpp-httplib") {
        return [] { return new httplib::ThreadPool(CPPHTTPLIB_THREAD_POOL_COUNT); };
    }
    throw std::invalid_argument("there is no pool " + name);
}
