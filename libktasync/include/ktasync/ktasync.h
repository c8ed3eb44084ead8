/// \file
/// All of libktasync: pools for a scope, futures, groups and loops on libktthread's pool.
#pragma once

#include <ktasync/KTCancelled.h>
#include <ktasync/KTFuture.h>
#include <ktasync/KTPoolOptions.h>
#include <ktasync/KTPoolRef.h>
#include <ktasync/KTPromise.h>
#include <ktasync/KTScopedPool.h>
#include <ktasync/KTStopToken.h>
#include <ktasync/KTTaskGroup.h>
#include <ktasync/KTTraceRecorder.h>
#include <ktasync/parallel.h>
#include <ktasync/post.h>
#include <ktasync/submit.h>
