/// A running service with some files.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include "Client.h"
#include "Program.h"

/// A directory `root` with files in it, and one beside it that must not be reached.
class Files {
public:
    Files()
    {
        char name[] = "/tmp/ktserve-XXXXXX";
        top = mkdtemp(name);
        std::filesystem::create_directories(root() + "/folder");
        std::ofstream(root() + "/abc") << "abc";
        std::ofstream(root() + "/folder/a b") << "abc";
        std::ofstream(top + "/secret") << "secret";
        std::filesystem::create_symlink(top + "/secret", root() + "/out");
        std::filesystem::create_symlink("..", root() + "/up");
        std::filesystem::create_symlink("abc", root() + "/link");
        std::filesystem::create_symlink("folder", root() + "/linked");
        mkfifo((root() + "/pipe").c_str(), 0600);
    }
    ~Files() { std::filesystem::remove_all(top); }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

    std::string root() const { return top + "/root"; }

private:
    std::string top;
};

/// Looks every few milliseconds until `condition` holds; false after a minute.
inline bool until(const std::function<bool()>& condition)
{
    for (int i = 0; i < 6000; ++i) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

class KtserveTest : public testing::Test {
protected:
    void start(const std::vector<std::string>& options = {},
               const Program::Environment& environment = {}, uid_t user = 0)
    {
        std::vector<std::string> arguments = {files.root(),   "--port", "0",
                                              "--admin-port", "0",      "--quiet"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        program = std::make_unique<Program>(arguments, environment, user);
        port = program->nextPort();
        adminPort = program->nextPort();
        ASSERT_GT(port, 0);
        ASSERT_GT(adminPort, 0);
    }

    /// The answer to a POST.
    static Reply post(int port, const std::string& path)
    {
        const Client client(port);
        client.send(requestOf(path, "", "POST"));
        return client.reply();
    }

    /// Of the service; its connections among them.
    int sockets() const
    {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(processFolder() + "/fd")) {
            std::error_code closed;
            const std::string what = read_symlink(entry.path(), closed).string();
            count += what.rfind("socket:", 0) == 0 ? 1 : 0;
        }
        return count;
    }

    /// Whether the service has a thread of that name.
    bool hasThread(const std::string& name) const
    {
        for (const auto& entry : std::filesystem::directory_iterator(processFolder() + "/task")) {
            std::string line;
            std::getline(std::ifstream(entry.path() / "comm"), line);
            if (line == name) {
                return true;
            }
        }
        return false;
    }

    /// Waits until the pool has this many busy workers and queued tasks.
    bool untilPoolHas(int busy, int queued) const
    {
        return until([&] {
            const auto status = nlohmann::json::parse(get(adminPort, "/status").body);
            return status["busyThreads"] == busy && status["queuedTasks"] == queued;
        });
    }

    void expectEnd(int status)
    {
        const Ended ended = program->end();
        EXPECT_EQ(status, ended.status) << ended.errors;
    }

    std::string processFolder() const { return "/proc/" + std::to_string(program->id()); }

    Files files;
    std::unique_ptr<Program> program;
    int port = 0;
    int adminPort = 0;
};
