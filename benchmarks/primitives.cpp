// What the primitives and guards cost beside the bare platform calls, on one thread. The part of a
// name in front of the slash says what is compared.
//
// The options are Google Benchmark's; ./check bench has them run in random order.
#include <benchmark/benchmark.h>

#include <pthread.h>

#include <ktthread/ktthread.h>

namespace {

void mutexPthread(benchmark::State& state)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        pthread_mutex_lock(&mutex);
        pthread_mutex_unlock(&mutex);
    }
}

void mutexKt(benchmark::State& state)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    for (auto _ : state) {
        mutex->lock();
        mutex->unlock();
    }
}

void mutexGuard(benchmark::State& state)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    for (auto _ : state) {
        const KT::KTCriticalSection hold(mutex);
    }
}

void trylockPthread(benchmark::State& state)
{
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        bool locked = pthread_mutex_trylock(&mutex) != 0;
        benchmark::DoNotOptimize(locked);
        pthread_mutex_unlock(&mutex);
    }
}

void trylockGuard(benchmark::State& state)
{
    const auto mutex = KT::KTMutex::createKTMutex();
    for (auto _ : state) {
        bool locked = false;
        const KT::KTCriticalTrueIfLocked hold(mutex, locked);
        benchmark::DoNotOptimize(locked);
    }
}

void readPthread(benchmark::State& state)
{
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    for (auto _ : state) {
        pthread_rwlock_rdlock(&lock);
        pthread_rwlock_unlock(&lock);
    }
}

void readKt(benchmark::State& state)
{
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    for (auto _ : state) {
        lock->readLock();
        lock->unlock();
    }
}

void readGuard(benchmark::State& state)
{
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    for (auto _ : state) {
        const KT::KTCriticalSectionRead hold(lock);
    }
}

void writePthread(benchmark::State& state)
{
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    for (auto _ : state) {
        pthread_rwlock_wrlock(&lock);
        pthread_rwlock_unlock(&lock);
    }
}

void writeKt(benchmark::State& state)
{
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    for (auto _ : state) {
        lock->writeLock();
        lock->unlock();
    }
}

void writeGuard(benchmark::State& state)
{
    const auto lock = KT::KTMutexRW::createKTMutexRW();
    for (auto _ : state) {
        const KT::KTCriticalSectionWrite hold(lock);
    }
}

void signalPthread(benchmark::State& state)
{
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    for (auto _ : state) {
        pthread_cond_signal(&condition);
    }
}

void signalKt(benchmark::State& state)
{
    const auto condition = KT::KTCondition::createKTCondition();
    for (auto _ : state) {
        condition->signal();
    }
}

void broadcastPthread(benchmark::State& state)
{
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    for (auto _ : state) {
        pthread_cond_broadcast(&condition);
    }
}

void broadcastKt(benchmark::State& state)
{
    const auto condition = KT::KTCondition::createKTCondition();
    for (auto _ : state) {
        condition->broadcast();
    }
}

BENCHMARK(mutexPthread)->Name("mutex/pthread");
BENCHMARK(mutexKt)->Name("mutex/KTMutex");
BENCHMARK(mutexGuard)->Name("mutex/KTCriticalSection");
BENCHMARK(trylockPthread)->Name("try-lock/pthread");
BENCHMARK(trylockGuard)->Name("try-lock/KTCriticalTrueIfLocked");
BENCHMARK(readPthread)->Name("read lock/pthread");
BENCHMARK(readKt)->Name("read lock/KTMutexRW");
BENCHMARK(readGuard)->Name("read lock/KTCriticalSectionRead");
BENCHMARK(writePthread)->Name("write lock/pthread");
BENCHMARK(writeKt)->Name("write lock/KTMutexRW");
BENCHMARK(writeGuard)->Name("write lock/KTCriticalSectionWrite");
BENCHMARK(signalPthread)->Name("signal/pthread");
BENCHMARK(signalKt)->Name("signal/KTCondition");
BENCHMARK(broadcastPthread)->Name("broadcast/pthread");
BENCHMARK(broadcastKt)->Name("broadcast/KTCondition");

}  // namespace

BENCHMARK_MAIN();
