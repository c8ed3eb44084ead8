/// What the examples in the core's headers take as given.
#pragma once

#include <cstdio>
#include <map>
#include <ostream>
#include <string>

#include <boost/make_shared.hpp>

#include <kterror/KTError.h>
#include <ktthread/ktthread.h>
#include <ro/log.h>
#include <ro/os.h>

struct Greet : KT::KTTask {
    void run() override;
};

extern boost::shared_ptr<KT::KTCondition> condition;
extern boost::shared_ptr<KT::KTMutex> mutex;
extern boost::shared_ptr<KT::KTMutexRW> lock;
extern boost::shared_ptr<KT::KTThreadPool> pool;
extern std::map<std::string, std::string> settings;
extern bool ready;
extern int counter;
extern int n;

void work();
