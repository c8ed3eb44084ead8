/// A client of every public header, in whatever standard it is compiled.
#include <kterror/KTError.h>
#include <ktthread/ktthread.h>
#include <ro/log.h>
#include <ro/os.h>

struct Task : KT::KTTask {
    void run() override { throw KT::KTError("m", "f", "d", __FILE__, __LINE__); }
};

int main()
{
    const boost::shared_ptr<KT::KTThreadPool> pool(new KT::KTThreadPool(1, 1, 0, 0, 0));
    pool->init(1, 1, 0, 0, 0);
    pool->enqueue(boost::shared_ptr<KT::KTTask>(new Task));
    const boost::shared_ptr<KT::KTMutex> mutex = KT::KTMutex::createKTMutex();
    const KT::KTCriticalSection hold(mutex);
    KT::KTConditionManager events;
    events.addCondition("name");
    ro::log::LogStream(6, "category", __FILE__, __func__, __LINE__)
        << "at " << ro::os::gettimeofday().tv_sec << std::endl;
    return pool->close() ? 0 : 1;
}
