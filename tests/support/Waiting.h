/// Waiting for what other threads do: always for a condition, always with a bound.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Looks every millisecond until `condition` holds; false after a minute, which fails the test.
bool eventually(const std::function<bool()>& condition);

/// The names of this process's threads that begin with `prefix`; the main one doesn't count.
std::vector<std::string> threadsNamed(const std::string& prefix);

/// Threads that are joined in the end.
class Threads {
public:
    ~Threads() { joinAll(); }

    void start(std::function<void()> body) { threads.emplace_back(std::move(body)); }

    void joinAll()
    {
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
    }

private:
    std::vector<std::thread> threads;
};

/// Blocks threads until it is opened, and counts those that have arrived at it.
class Gate {
public:
    void open();
    /// Blocks until the gate is open.
    void pass();
    int arrived() const;
    /// Whether at least `count` have arrived, after a bounded wait.
    bool untilArrived(int count) const;

private:
    mutable std::mutex mutex;
    std::condition_variable opened;
    bool isOpen = false;
    int arrivals = 0;
};
