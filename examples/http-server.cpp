/// An HTTP server, by cpp-httplib, whose connections are tasks of a pool. It serves until SIGTERM
/// or Ctrl-C, answers what it has accepted by then, and says how many requests that were.
///
///     ./http-server
///     curl http://127.0.0.1:PORT/hello/7
#include <atomic>
#include <csignal>
#include <cstdio>
#include <functional>
#include <future>
#include <thread>
#include <type_traits>
#include <utility>

#include <httplib.h>

#include <ktasync/ktasync.h>

/// Hands the connections of a httplib::Server to a pool, which must outlive the server.
class KtTaskQueue : public httplib::TaskQueue {
public:
    /// bool in newer versions of cpp-httplib: false, and the server closes the connection.
    using Accepted = decltype(std::declval<httplib::TaskQueue&>().enqueue(nullptr));

    /// For a pool with `maxQueued`. A version where it is void would never close a connection that
    /// was refused: there the server waits for room, and new clients with it.
    static constexpr auto whenFull = std::is_void_v<Accepted> ? KT::KTPoolOptions::WhenFull::block
                                                              : KT::KTPoolOptions::WhenFull::refuse;

    explicit KtTaskQueue(KT::KTScopedPool& toRunIn) : pool(toRunIn) {}

    Accepted enqueue(std::function<void()> connection) override
    {
        return static_cast<Accepted>(KT::post(pool, "http", std::move(connection)));
    }

    void shutdown() override { pool.close(); }

private:
    KT::KTScopedPool& pool;
};

/// Accepts connections in a thread of its own until the process is told to stop.
void serve(httplib::Server& server, KT::KTScopedPool& pool, const sigset_t& stops)
{
    std::promise<void> begun;
    server.new_task_queue = [&] {
        begun.set_value();
        return new KtTaskQueue(pool);
    };
    const int port = server.bind_to_any_port("127.0.0.1");
    std::thread listener([&server] { server.listen_after_bind(); });
    begun.get_future().wait();  // before that, stop() would do nothing
    std::printf("http://127.0.0.1:%d\n", port);
    std::fflush(stdout);

    int signal = 0;
    sigwait(&stops, &signal);
    server.stop();
    listener.join();  // has closed the pool
}

int main()
{
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stops, nullptr);  // here, since new threads inherit that

    KT::KTPoolOptions options;
    options.maxThreads = 64;  // connections at a time: each blocks while its client is slow
    options.maxQueued = 256;  // connections that wait
    options.whenFull = KtTaskQueue::whenFull;
    KT::KTScopedPool pool(options);

    std::atomic<int> answered(0);
    httplib::Server server;
    server.Get(R"(/hello/(\d+))", [&](const httplib::Request& request, httplib::Response& reply) {
        reply.set_content("hello " + request.matches[1].str() + "\n", "text/plain");
        ++answered;
    });
    serve(server, pool, stops);
    std::printf("answered %d\n", answered.load());
}
