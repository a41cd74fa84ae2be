// Hands work over to the thread, and its outcome back to the loop.
#include "agent/server/work_thread.h"

#include <utility>

#include "framework/memory/assertion.h"

namespace Agent {

WorkThread::WorkThread(EventLoop& loop) : loop_(loop), thread_([this] { run(); }) {}

WorkThread::~WorkThread() {
  {
    std::scoped_lock const lock(mutex_);
    isStopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void WorkThread::start(std::function<void()> work, Done done) {
  NOX_ASSERT(!isBusy(), "one piece of work at a time");
  done_ = std::move(done);
  {
    std::scoped_lock const lock(mutex_);
    work_ = std::move(work);
  }
  changed_.notify_all();
}

void WorkThread::finish() {
  while (isBusy()) {
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return hasEnded_; });
    }
    tell();
  }
}

void WorkThread::run() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return work_ != nullptr || isStopping_; });
    if (work_ == nullptr) return;
    auto const work = std::exchange(work_, nullptr);
    lock.unlock();
    std::exception_ptr thrown;
    try {
      work();
    } catch (...) {
      thrown = std::current_exception();
    }
    lock.lock();
    thrown_ = thrown;
    hasEnded_ = true;
    changed_.notify_all();
    loop_.post([self = std::weak_ptr(self_)] {
      if (auto const thread = self.lock()) (**thread).tell();
    });
  }
}

// Of work that `finish()` has told of already, there is nothing to tell.
void WorkThread::tell() {
  std::exception_ptr thrown;
  {
    std::scoped_lock const lock(mutex_);
    if (!std::exchange(hasEnded_, false)) return;
    thrown = std::exchange(thrown_, nullptr);
  }
  std::exchange(done_, nullptr)(thrown);
}

}  // namespace Agent
