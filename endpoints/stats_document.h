// The process's live statistics as the API serves them: null before the first stream,
// then an object that each sample rewrites.
//
// Who samples does so before locking and holds the mutex only to write; who reads
// copies under it. So no reader sees half of a rewrite.
#pragma once

#include <json/value.h>

#include "core/shared/mutex.h"

struct StatsDocument {
    Mutex stats_mutex;
    Json::Value document GUARDED_BY(stats_mutex);
};
