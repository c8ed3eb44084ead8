#include "Program.h"

#include <csignal>
#include <cstdlib>

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

[[noreturn]] void become(const std::vector<std::string>& arguments,
                         const Program::Environment& environment)
{
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

Program::Program(const std::vector<std::string>& arguments, const Environment& environment)
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
        become(arguments, environment);
    }
    close(out.ends[1]);
    close(err.ends[1]);
    output = out.ends[0];
    errors = err.ends[0];
}

Program::~Program()
{
    if (process > 0) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    close(output);
    close(errors);
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

Ended Program::end()
{
    Ended ended = {-1, ""};
    char buffer[4096];
    ssize_t size = 0;
    while ((size = read(errors, buffer, sizeof buffer)) > 0) {
        ended.errors.append(buffer, static_cast<std::size_t>(size));
    }
    int status = 0;
    if (waitpid(process, &status, 0) == process && WIFEXITED(status)) {
        ended.status = WEXITSTATUS(status);
    }
    process = -1;
    return ended;
}
