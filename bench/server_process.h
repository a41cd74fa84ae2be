// The program `enrolix serve` as a child process: started, watched from outside, and certain to end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace ServeLoad {

/// A server on a free port of this machine. It ends with its owner, and with the thread that started it.
class ServerProcess {
 public:
  /// Starts one that keeps its state and its log in `folder`, and waits until it listens. Throws a std::runtime_error.
  explicit ServerProcess(std::string const& folder);
  ~ServerProcess() { kill(); }
  ServerProcess(ServerProcess const&) = delete;
  ServerProcess& operator=(ServerProcess const&) = delete;

  std::string const& url() const { return url_; }

  std::size_t residentBytes() const;
  /// What it has had of the processors so far.
  std::chrono::duration<double> processorTime() const;

  /// Ends it at once, as a crash would, and waits until it is gone.
  void kill();

 private:
  pid_t pid_ = -1;
  std::string url_;
};

}  // namespace ServeLoad
