#pragma once
// A process-wide pool of worker threads for data-parallel loops.
//
// The pool has one worker per core, made on first use. `parallelFor` hands out
// indexes through an atomic counter; the calling thread works too, so a loop
// always progresses even when every worker is busy. A loop started from inside
// a worker runs serially on that worker, so nested loops never deadlock.

#include <cstddef>
#include <functional>

namespace lumivale {

/// Number of threads a parallel loop uses (the machine's cores, at least 1).
std::size_t workerCount();

/// Calls `body(i)` for every i in [0, count), spread over the pool, and returns
/// when all calls are done. Calls may run in any order and at the same time.
/// The first exception thrown by `body` is rethrown here once all calls ended.
void parallelFor(std::size_t count, const std::function<void(std::size_t)>& body);

}  // namespace lumivale
