#pragma once

#include <utility>

#include <pthread.h>

#include <boost/shared_ptr.hpp>

#include "CancelState.h"

namespace KT::core {

/// A pointer that owns nothing, to an object that outlives it. An owning one would change the
/// object's reference count, which would move from processor to processor at each use.
template <typename T>
boost::shared_ptr<T> nonOwning(T* object)
{
    return boost::shared_ptr<T>(boost::shared_ptr<T>(), object);
}

template <typename T>
boost::shared_ptr<T> nonOwning(const boost::shared_ptr<T>& pointer)
{
    return nonOwning(pointer.get());
}

// A shared pointer that one thread may set while another reads it. Boost's atomic operations may
// sleep while the pointer is busy, and are noexcept: a task that uses its pool mustn't be cancelled
// in them.

template <typename T>
boost::shared_ptr<T> loadShared(const boost::shared_ptr<T>& pointer)
{
    const CancelState disabled(PTHREAD_CANCEL_DISABLE);
    return boost::atomic_load(&pointer);
}

template <typename T>
boost::shared_ptr<T> exchangeShared(boost::shared_ptr<T>& pointer, boost::shared_ptr<T> value)
{
    const CancelState disabled(PTHREAD_CANCEL_DISABLE);
    return boost::atomic_exchange(&pointer, std::move(value));
}

}  // namespace KT::core
