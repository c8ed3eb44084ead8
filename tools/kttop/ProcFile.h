/// Reading small files again and again.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include <unistd.h>

/// A file descriptor, closed in the end; -1: none.
class FileDescriptor {
public:
    explicit FileDescriptor(int opened = -1) : number(opened) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    ~FileDescriptor()
    {
        if (number >= 0) {
            close(number);
        }
    }

    int get() const { return number; }
    int release() { return std::exchange(number, -1); }
    bool isOpen() const { return number >= 0; }

private:
    int number;
};

/// A file in one thread's folder. Reading one that is open already costs a third of opening,
/// reading and closing it, and the open file is bound to its thread: it never shows another with
/// the same number.
class ThreadFile {
public:
    explicit ThreadFile(const char* nameInFolder) : name(nameInFolder) {}

    /// All of the file; nothing, with `errno` set, if it can't be read. `tasks` is the folder that
    /// has the thread's folder in it. With `keep`, the file stays open.
    std::optional<std::string> read(int tasks, int tid, bool keep);

    bool isKept() const { return file.isOpen(); }

private:
    const char* name;
    FileDescriptor file;
};

/// All of the file; nothing, with `errno` set, if it can't be read.
std::optional<std::string> readFile(int directory, const std::string& path);
