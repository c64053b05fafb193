#include "engine/util/parallel.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace lumivale {
namespace {

thread_local bool insideWorker = false;

// One loop in flight: workers and the caller pull indexes until none are left.
struct Loop {
  std::size_t count = 0;
  const std::function<void(std::size_t)>* body = nullptr;
  std::atomic<std::size_t> next{0};
  std::atomic<std::size_t> done{0};
  std::mutex mutex;
  std::condition_variable finished;
  std::exception_ptr error;

  void work() {
    for (;;) {
      std::size_t i = next.fetch_add(1, std::memory_order_relaxed);
      if (i >= count) return;
      try {
        (*body)(i);
      } catch (...) {
        std::lock_guard lock(mutex);
        if (!error) error = std::current_exception();
      }
      if (done.fetch_add(1, std::memory_order_acq_rel) + 1 == count) {
        std::lock_guard lock(mutex);
        finished.notify_all();
      }
    }
  }
};

class Pool {
 public:
  Pool() {
    unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    threads = cores;
    // The caller takes part in every loop, so one worker fewer than cores.
    for (unsigned t = 1; t < cores; ++t) {
      workers.emplace_back([this] { run(); });
    }
  }

  ~Pool() {
    {
      std::lock_guard lock(mutex);
      stopping = true;
    }
    wake.notify_all();
    for (auto& w : workers) w.join();
  }

  void submit(const std::shared_ptr<Loop>& loop, std::size_t helpers) {
    {
      std::lock_guard lock(mutex);
      for (std::size_t h = 0; h < helpers; ++h) queue.push_back(loop);
    }
    wake.notify_all();
  }

  std::size_t threads = 1;
  std::size_t workerThreads() const { return workers.size(); }

 private:
  void run() {
    insideWorker = true;
    for (;;) {
      std::shared_ptr<Loop> loop;
      {
        std::unique_lock lock(mutex);
        wake.wait(lock, [this] { return stopping || !queue.empty(); });
        if (stopping && queue.empty()) return;
        loop = std::move(queue.front());
        queue.pop_front();
      }
      loop->work();
    }
  }

  std::mutex mutex;
  std::condition_variable wake;
  std::deque<std::shared_ptr<Loop>> queue;
  std::vector<std::thread> workers;
  bool stopping = false;
};

Pool& pool() {
  static Pool instance;
  return instance;
}

}  // namespace

std::size_t workerCount() { return pool().threads; }

void parallelFor(std::size_t count, const std::function<void(std::size_t)>& body) {
  if (count == 0) return;
  Pool& p = pool();
  if (count == 1 || insideWorker || p.workerThreads() == 0) {
    for (std::size_t i = 0; i < count; ++i) body(i);
    return;
  }
  auto loop = std::make_shared<Loop>();
  loop->count = count;
  loop->body = &body;
  p.submit(loop, std::min(count - 1, p.workerThreads()));
  loop->work();
  {
    std::unique_lock lock(loop->mutex);
    loop->finished.wait(lock, [&] { return loop->done.load(std::memory_order_acquire) == count; });
  }
  if (loop->error) std::rethrow_exception(loop->error);
}

}  // namespace lumivale
