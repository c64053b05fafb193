#pragma once
// A serial task queue on one dedicated thread: tasks run one at a time, in
// the order they were posted. The render queue of the model is one.

#include <QString>
#include <QThread>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace lumivale::app {

class SerialQueue {
 public:
  /// Starts the thread, named `name` (the name the system shows for it),
  /// at `priority`.
  SerialQueue(const QString& name, QThread::Priority priority);
  /// Stops the queue (see `stop`).
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  /// Runs `task` on the queue's thread after every task posted before it.
  /// Thread-safe. A task that throws is ended there; the queue goes on.
  void post(std::function<void()> task);
  /// Drops the tasks not yet started, lets the running one end and joins
  /// the thread; later posts are dropped. Safe to call twice.
  void stop();
  /// The queue's thread, for checks.
  QThread* thread() const { return thread_; }

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::function<void()>> tasks_;
  bool stopping_ = false;
  QThread* thread_ = nullptr;
};

}  // namespace lumivale::app
