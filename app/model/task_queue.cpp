#include "app/model/task_queue.h"

namespace lumivale::app {

SerialQueue::SerialQueue(const QString& name, QThread::Priority priority) {
  thread_ = QThread::create([this] { run(); });
  // Qt names the system thread after the object when it starts.
  thread_->setObjectName(name);
  thread_->start(priority);
}

SerialQueue::~SerialQueue() {
  stop();
  delete thread_;
}

void SerialQueue::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    tasks_.clear();
  }
  wake_.notify_all();
  thread_->wait();
  // The thread's last act was to let go of the lock; taking it orders its
  // work before ours for ThreadSanitizer, which cannot see into QThread.
  std::lock_guard lock(mutex_);
}

void SerialQueue::post(std::function<void()> task) {
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    tasks_.push_back(std::move(task));
  }
  wake_.notify_one();
}

void SerialQueue::run() {
  for (;;) {
    std::function<void()> task;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
      if (stopping_) return;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    try {
      task();
    } catch (...) {
      // A task reports its own failures; one that escapes must not end the
      // queue, or every later render would be lost.
    }
  }
}

}  // namespace lumivale::app
