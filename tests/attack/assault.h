// One attack while it lasts, and the connections of its clients.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

#include "bench/server_process.h"

namespace Attack {

/// What an attack's load is counted in.
enum class Unit { requests, bytes, connections };

/// What its clients share.
struct Assault {
  ServeLoad::ServerProcess& server;
  /// There are so many, from 0 up, which are none of the attack's.
  std::size_t switches;
  /// Whether it is the short form, for a test.
  bool isSmall;
  std::uint32_t seed;
  double seconds;
  std::atomic<bool> isOver{false};
  /// By unit. A request counts when it is answered.
  std::array<std::atomic<std::size_t>, 3> arrived{};
  std::atomic<std::size_t> refused{0};
  /// For how many seconds the server was stopped.
  std::atomic<double> stopped{0};

  std::atomic<std::size_t>& operator[](Unit unit) { return arrived[static_cast<std::size_t>(unit)]; }

  /// One of the two: of an attack at its full size, and of its short form.
  template <class Value>
  Value sized(Value full, Value small) const {
    return isSmall ? small : full;
  }
  /// Waits, but not beyond the end of the attack.
  void sleep(double time) const {
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(time);
    while (!isOver && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(kStep);
  }

  static constexpr std::chrono::milliseconds kStep{10};
};

/// A connection that does what a client should not. No call goes on beyond the end of the attack.
class Wire {
 public:
  /// `from` says which of the attackers' addresses it has. `receiveBuffer` makes a reader that takes little before it
  /// is full; 0 leaves it to the system.
  explicit Wire(Assault& assault, std::size_t from = 0, int receiveBuffer = 0);
  Wire(Wire const&) = delete;
  Wire& operator=(Wire const&) = delete;
  ~Wire() { close(); }

  bool isOpen() const { return socket_ >= 0; }
  void close();

  /// Whether all has been sent; a server may have ended the connection, which closes it.
  bool send(std::string_view bytes);
  /// Sends what goes without waiting, of bytes that are sent again and again.
  void sendOn(std::string_view bytes);
  /// The next response's status; 0 if there is none.
  int answer();
  /// Reads and throws away what has come, but for the number of answers.
  void drain();

 private:
  /// Sends what goes without waiting; how much.
  std::size_t sendSome(std::string_view bytes);
  void countAnswers(std::string_view bytes);
  /// Whether the socket is ready for it before the attack is over.
  bool await(short what) const;

  Assault& assault_;
  int socket_;
  std::string bytes_;
  /// How much has been sent of the bytes that are sent again and again.
  std::size_t sent_ = 0;
};

/// Sends one request after the other, each when the one before has been answered, on a connection that is made anew
/// when the server ends it.
void repeat(Assault& assault, std::function<std::string(std::size_t i)> const& request);

}  // namespace Attack
