/// A /proc made up in a directory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

/// What the files of a thread say.
struct FakeThread {
    std::string name;
    char state = 'S';
    std::uint64_t cpuNs = 0;
    std::uint64_t waitNs = 0;
    std::uint64_t voluntary = 0;
    std::uint64_t involuntary = 0;
    std::uint64_t start = 100;
    std::string waitsIn = "futex_wait_queue";
    std::uint64_t slices = 3;
};

/// Files are written over in place: a reader may hold them open, as it does the kernel's.
class FakeProc {
public:
    FakeProc() : path(std::filesystem::temp_directory_path() / ("kttop-proc." + pidText()))
    {
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    ~FakeProc() { std::filesystem::remove_all(path); }
    FakeProc(const FakeProc&) = delete;
    FakeProc& operator=(const FakeProc&) = delete;

    std::string root() const { return path; }

    void process(int pid, const std::string& name, std::uint64_t start = 100, char state = 'S',
                 const std::string& command = "")
    {
        const std::filesystem::path folder = path / std::to_string(pid);
        FakeThread thread;
        thread.name = name;
        thread.start = start;
        thread.state = state;
        writeThread(folder, pid, pid, thread);
        write(folder / "cmdline", command);
        writeThread(folder / "task" / std::to_string(pid), pid, pid, thread);
    }

    void thread(int pid, int tid, const FakeThread& thread)
    {
        writeThread(threadFolder(pid, tid), pid, tid, thread);
    }

    std::filesystem::path threadFolder(int pid, int tid) const
    {
        return path / std::to_string(pid) / "task" / std::to_string(tid);
    }

    void end(int pid) { std::filesystem::remove_all(path / std::to_string(pid)); }
    void endThread(int pid, int tid) { std::filesystem::remove_all(threadFolder(pid, tid)); }

    static void write(const std::filesystem::path& file, const std::string& text)
    {
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
    }

private:
    static std::string pidText() { return std::to_string(getpid()); }

    static void writeThread(const std::filesystem::path& folder, int pid, int tid,
                            const FakeThread& thread)
    {
        const std::string ticks = std::to_string(thread.cpuNs / 10000000);
        write(folder / "comm", thread.name + "\n");
        write(folder / "stat", std::to_string(tid) + " (" + thread.name + ") " + thread.state +
                                   " 1 1 1 0 -1 4194304 114 0 0 0 " + ticks + " 0 0 0 20 0 1 0 " +
                                   std::to_string(thread.start) + " 0 0\n");
        write(folder / "status",
              std::string("Name:\tname\nUmask:\t0022\nState:\t") + thread.state +
                  " (what)\nTgid:\t" + std::to_string(pid) + "\nvoluntary_ctxt_switches:\t" +
                  std::to_string(thread.voluntary) + "\nnonvoluntary_ctxt_switches:\t" +
                  std::to_string(thread.involuntary) + "\n");
        write(folder / "schedstat", std::to_string(thread.cpuNs) + " " +
                                        std::to_string(thread.waitNs) + " " +
                                        std::to_string(thread.slices) + "\n");
        write(folder / "wchan", thread.waitsIn);
    }

    const std::filesystem::path path;
};
