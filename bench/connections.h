// Many connections to one server, on one thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ServeLoad {

/// Begins to connect to a server on this machine, from an address of the loopback network that `from` numbers: the
/// socket, which is the caller's; -1 with errno if it could not. A `receiveBuffer` of 0 is the system's own.
int beginConnection(std::size_t from, std::uint16_t port, int receiveBuffer = 0);

/// Clients of a server on this machine that send when they are told to, and take what comes when `work()` is called.
/// What fails is a std::runtime_error.
class Connections {
 public:
  using Clock = std::chrono::steady_clock;
  /// Takes from the front of all that a connection has brought, and leaves what is not yet whole.
  using Taker = std::function<void(std::string& bytes)>;
  /// Is told that the server has ended a connection, which is closed then.
  using EndTaker = std::function<void()>;

  /// An address has some 28,000 ports for clients, and a free one is found quickly while most are.
  static constexpr std::size_t kOfOneAddress = 2'000;

  /// So many have one address, the next another one.
  explicit Connections(std::uint16_t port, std::size_t ofOneAddress = kOfOneAddress);
  ~Connections();
  Connections(Connections const&) = delete;
  Connections& operator=(Connections const&) = delete;

  /// Begins another connection; its number, from 0 up. Without `ended`, no server may end it. Not for takers to call.
  std::size_t add(Taker taker, EndTaker ended = nullptr);
  void send(std::size_t connection, std::string_view bytes);
  void close(std::size_t connection);
  bool isOpen(std::size_t connection) const { return all_[connection].socket >= 0; }

  /// Gives what has come to its takers until then, or until `isDone`, which is asked now and then.
  void work(Clock::time_point until, std::function<bool()> const& isDone = nullptr);

  std::size_t size() const { return all_.size(); }

 private:
  struct One {
    int socket;
    std::string out;
    std::string in;
    Taker taker;
    EndTaker ended;
  };

  static void close(One& one);
  static void end(One& one, char const* what);
  static void flush(One& one);
  void read(One& one);

  std::uint16_t port_;
  std::size_t ofOneAddress_;
  int poll_;
  std::vector<One> all_;
  std::vector<char> room_;
};

}  // namespace ServeLoad
