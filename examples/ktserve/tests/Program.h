/// A ktserve that runs as a process of its own.
#pragma once

#include <string>
#include <utility>
#include <vector>

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

    explicit Program(const std::vector<std::string>& arguments,
                     const Environment& environment = Environment());
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /// The port in the next line of its output; 0 if there is none.
    int nextPort();

    void tell(int signal) const;

    /// Waits until it has ended.
    Ended end();

private:
    pid_t process = -1;
    int output = -1;
    int errors = -1;
};
