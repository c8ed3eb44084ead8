#include "Waiting.h"

#include <fstream>
#include <thread>

#include <dirent.h>
#include <pthread.h>
#include <unistd.h>

bool eventually(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::vector<std::string> threadsNamed(const std::string& prefix)
{
    std::vector<std::string> found;
    DIR* const tasks = opendir("/proc/self/task");
    while (const dirent* const entry = readdir(tasks)) {
        if (entry->d_name[0] == '.' || entry->d_name == std::to_string(getpid())) {
            continue;
        }
        std::ifstream file("/proc/self/task/" + std::string(entry->d_name) + "/comm");
        std::string name;
        if (std::getline(file, name) && name.compare(0, prefix.size(), prefix) == 0) {
            found.push_back(name);
        }
    }
    closedir(tasks);
    return found;
}

void Gate::open()
{
    const std::lock_guard<std::mutex> hold(mutex);
    isOpen = true;
    opened.notify_all();
}

void Gate::pass()
{
    std::unique_lock<std::mutex> hold(mutex);
    ++arrivals;
    while (!isOpen) {
        // Tasks are cut off in here, and libc++ declares the wait of its conditions noexcept.
        pthread_cond_wait(opened.native_handle(), mutex.native_handle());
    }
}

int Gate::arrived() const
{
    const std::lock_guard<std::mutex> hold(mutex);
    return arrivals;
}

bool Gate::untilArrived(int count) const
{
    return eventually([this, count] { return arrived() >= count; });
}
