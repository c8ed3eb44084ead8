/// An open file or socket.
#pragma once

#include <utility>

#include <unistd.h>

/// Owns a descriptor, and closes it. It belongs to one thread at a time, and can be moved.
class Descriptor {
public:
    explicit Descriptor(int toOwn = -1) : descriptor(toOwn) {}
    ~Descriptor()
    {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }

    Descriptor(Descriptor&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(descriptor, other.descriptor);
        return *this;
    }

    /// -1: none.
    int get() const { return descriptor; }

private:
    int descriptor;
};
