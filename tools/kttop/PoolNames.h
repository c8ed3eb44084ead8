/// Which pools the workers of a process belong to.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "ProcFile.h"

/// The names in the process's map of workers (libktthread's WorkerMapLayout.h), which is its own
/// memory: anything may stand in it. A process without a map, or one whose descriptors may not be
/// read, has no names. Belongs to one thread.
class PoolNames {
public:
    /// \param folder  the process's, below /proc
    /// \param pid     as the process numbers itself
    PoolNames(std::string folder, int pid);
    ~PoolNames();
    PoolNames(PoolNames&& other) noexcept;
    PoolNames& operator=(PoolNames&&) = delete;

    /// Reads the names as they are now. Every few seconds, it looks for the map again, if there was
    /// no name for a thread.
    void read(std::int64_t nowNs);

    bool isEmpty() const { return names.empty(); }

    /// Any bytes, at most 31; empty: not known. \param thread  as the process numbers it
    std::string of(int thread);

private:
    struct Map;

    void find();
    void readFrom(const FileDescriptor& map);

    std::string fdFolder;
    int process;
    bool missed = true;
    std::int64_t nextSearchNs = 0;
    // Several, where the library is in the process more than once.
    std::vector<FileDescriptor> maps;
    std::unique_ptr<Map> buffer;
    std::unordered_map<int, std::string> names;
};
