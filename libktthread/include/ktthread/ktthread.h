/// \file
/// All of libktthread: the pool, its tasks and workers, and its primitives.
#pragma once

#include <ktthread/KTCondition.h>
#include <ktthread/KTConditionManager.h>
#include <ktthread/KTCriticalSection.h>
#include <ktthread/KTMonitor.h>
#include <ktthread/KTMutex.h>
#include <ktthread/KTPoolExtension.h>
#include <ktthread/KTTask.h>
#include <ktthread/KTThread.h>
#include <ktthread/KTThreadPool.h>
#include <ktthread/KTThreadPoolStatus.h>
#include <ktthread/version.h>
