/// What the examples in the header of libktasync-metrics take as given.
#pragma once

#include <memory>

#include <prometheus/exposer.h>
#include <prometheus/registry.h>

#include <ktasync/KTPoolMetrics.h>

extern KT::KTScopedPool& pool;
