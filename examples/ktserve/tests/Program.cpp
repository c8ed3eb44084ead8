#include "Program.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Of the two ends of a pipe.
struct Pipe {
    Pipe()
    {
        if (pipe(ends) != 0) {
            std::abort();
        }
    }
    int ends[2];
};

/// Goes on as this user; 0: as before.
void becomeUser(uid_t user)
{
    if (user != 0 && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) {
        _exit(126);
    }
}

[[noreturn]] void become(const std::vector<std::string>& arguments,
                         const Program::Environment& environment, uid_t user)
{
    becomeUser(user);
    for (const auto& [name, value] : environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char*> pointers = {const_cast<char*>("ktserve")};
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    execv(KTSERVE_PROGRAM, pointers.data());
    _exit(127);
}

}  // namespace

Program::Program(const std::vector<std::string>& arguments, const Environment& environment,
                 uid_t toBecome)
    : user(toBecome)
{
    const Pipe out;
    const Pipe err;
    process = fork();
    if (process == 0) {
        dup2(out.ends[1], STDOUT_FILENO);
        dup2(err.ends[1], STDERR_FILENO);
        for (const int end : {out.ends[0], out.ends[1], err.ends[0], err.ends[1]}) {
            close(end);
        }
        become(arguments, environment, user);
    }
    close(out.ends[1]);
    close(err.ends[1]);
    output = out.ends[0];
    // Or its records would fill the pipe.
    reader = std::thread([this, errors = err.ends[0]] {
        char buffer[4096];
        ssize_t size = 0;
        while ((size = read(errors, buffer, sizeof buffer)) > 0) {
            const std::lock_guard<std::mutex> hold(mutex);
            text.append(buffer, static_cast<std::size_t>(size));
        }
        close(errors);
    });
}

Program::~Program()
{
    if (process > 0) {
        kill(process, SIGKILL);
        end();
    }
    close(output);
}

int Program::nextPort()
{
    std::string line;
    char c = '\0';
    while (read(output, &c, 1) == 1 && c != '\n') {
        line += c;
    }
    return std::atoi(line.substr(line.rfind(':') + 1).c_str());
}

void Program::tell(int signal) const
{
    kill(process, signal);
}

void Program::limit(__rlimit_resource resource, rlim_t most) const
{
    rlimit both = {};
    if (getrlimit(resource, &both) != 0) {
        std::abort();
    }
    both.rlim_cur = std::min(most, both.rlim_max);
    // It may be another user's, whose limits not even root can change in a container.
    const pid_t child = fork();
    if (child == 0) {
        becomeUser(user);
        _exit(prlimit(process, resource, &both, nullptr) == 0 ? 0 : 1);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) {
        std::abort();
    }
}

bool Program::hasSaid(const std::string& part)
{
    const std::lock_guard<std::mutex> hold(mutex);
    return text.find(part) != std::string::npos;
}

Ended Program::end()
{
    int status = 0;
    const bool hasExited = waitpid(process, &status, 0) == process && WIFEXITED(status);
    process = -1;
    reader.join();
    return {hasExited ? WEXITSTATUS(status) : -1, text};
}
