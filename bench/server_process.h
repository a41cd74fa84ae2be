// The program `enrolix serve` as a child process: started, watched from outside, and certain to end.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ServeLoad {

/// What else a server is started with.
struct Launch {
  std::vector<std::string> options;
  /// Variables beside those of this program.
  std::map<std::string, std::string> environment;
};

/// A server on a free port of this machine. It ends with its owner, and with the thread that started it.
class ServerProcess {
 public:
  /// Starts one that keeps its state and its log in `folder`, and waits until it listens. Throws a std::runtime_error.
  explicit ServerProcess(std::string const& folder, Launch const& launch = {});
  ~ServerProcess() { kill(); }
  ServerProcess(ServerProcess const&) = delete;
  ServerProcess& operator=(ServerProcess const&) = delete;

  std::string const& url() const { return url_; }
  std::uint16_t port() const { return static_cast<std::uint16_t>(std::stoul(url_.substr(url_.rfind(':') + 1))); }

  void signal(int number) const;
  /// Whether it has not ended.
  bool runs() const;

  std::size_t residentBytes() const { return bytesOf("VmRSS:"); }
  /// The most that it had at any time.
  std::size_t peakBytes() const { return bytesOf("VmHWM:"); }
  /// What it has had of the processors so far.
  std::chrono::duration<double> processorTime() const;

  /// Ends it at once, as a crash would, and waits until it is gone.
  void kill();

 private:
  std::size_t bytesOf(char const* row) const;

  pid_t pid_ = -1;
  std::string url_;
};

}  // namespace ServeLoad
