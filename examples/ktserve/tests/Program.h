/// A ktserve that runs as a process of its own.
#pragma once

#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/resource.h>
#include <sys/types.h>

/// What a process that has ended left.
struct Ended {
    int status;  ///< -1 after a signal
    std::string errors;
};

/// Started when it is made, and killed in the end if it still runs.
class Program {
public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    /// \param user  that it becomes, if this process is root; 0: this process's
    explicit Program(const std::vector<std::string>& arguments,
                     const Environment& environment = Environment(), uid_t user = 0);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// The port in the next line of its output; 0 if there is none.
    int nextPort();

    void tell(int signal) const;
    pid_t id() const { return process; }

    /// Its limit of a resource, as of setrlimit, from now on.
    void limit(__rlimit_resource resource, rlim_t most) const;

    /// Whether its records have this text by now.
    bool hasSaid(const std::string& part);

    /// Waits until it has ended.
    Ended end();

private:
    const uid_t user;
    pid_t process = -1;
    int output = -1;
    std::mutex mutex;
    std::string text;  ///< its errors; `mutex`
    std::thread reader;
};
