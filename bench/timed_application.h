#pragma once
// A Qt application that measures the longest event its main thread handles
// while `timing` is set: every queued result, timer, paint and call runs
// inside one. On two busy cores the wall time also holds the moments the
// core served other threads and processes; the thread's CPU time is the
// program's own work. BENCH_SLOW_EVENTS=1 prints each event over 16 ms.

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <ctime>

namespace lumivale::bench {

template <class Base>
class TimedApplication : public Base {
 public:
  using Base::Base;

  bool notify(QObject* receiver, QEvent* event) override {
    if (!timing || QThread::currentThread() != this->thread()) return Base::notify(receiver, event);
    QElapsedTimer clock;
    clock.start();
    const double cpuBefore = threadCPUms();
    const bool done = Base::notify(receiver, event);
    const double ms = clock.nsecsElapsed() / 1e6;
    longestCPUms = std::max(longestCPUms, threadCPUms() - cpuBefore);
    longestMS = std::max(longestMS, ms);
    if (ms > 16 && qEnvironmentVariableIsSet("BENCH_SLOW_EVENTS")) {
      std::fprintf(stderr, "slow event %d on %s: %.1f ms\n", int(event->type()),
                   receiver->metaObject()->className(), ms);
    }
    return done;
  }

  static double threadCPUms() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
  }

  bool timing = false;
  double longestMS = 0;     ///< wall time, preemption by other threads included
  double longestCPUms = 0;  ///< the main thread's own work
};

}  // namespace lumivale::bench
