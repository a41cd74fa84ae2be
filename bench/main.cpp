// Runs the benchmarks, with a second thread in the process.
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

/// A thread that does nothing. Without one, std::shared_ptr counts without locking, which no agent's process could do.
class ParkedThread {
 public:
  ParkedThread() = default;
  ParkedThread(ParkedThread const&) = delete;
  ParkedThread& operator=(ParkedThread const&) = delete;
  ~ParkedThread() {
    {
      std::lock_guard const lock(mutex_);
      isOver_ = true;
    }
    over_.notify_one();
    thread_.join();
  }

 private:
  std::mutex mutex_;
  std::condition_variable over_;
  bool isOver_ = false;
  std::thread thread_{[this] {
    std::unique_lock lock(mutex_);
    over_.wait(lock, [this] { return isOver_; });
  }};
};

}  // namespace

int main(int argc, char** argv) {
  ParkedThread const parked;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
