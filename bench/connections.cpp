// Sockets that never wait, behind one queue of the system's events.
#include "bench/connections.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace ServeLoad {
namespace {

constexpr std::chrono::milliseconds kBetweenQuestions(10);

[[noreturn]] void fail(char const* what) { throw std::system_error(errno, std::generic_category(), what); }

sockaddr_in loopback(std::size_t number, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + static_cast<std::uint32_t>(number));
  return address;
}

}  // namespace

int beginConnection(std::size_t from, std::uint16_t port, int receiveBuffer) {
  int const socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (socket < 0) return -1;
  int const on = 1;
  setsockopt(socket, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
  if (receiveBuffer != 0) setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  sockaddr_in const own = loopback(from, 0);
  sockaddr_in const server = loopback(0, port);
  if (bind(socket, reinterpret_cast<sockaddr const*>(&own), sizeof own) == 0 &&
      (connect(socket, reinterpret_cast<sockaddr const*>(&server), sizeof server) == 0 || errno == EINPROGRESS))
    return socket;
  int const error = errno;
  ::close(socket);
  errno = error;
  return -1;
}

Connections::Connections(std::uint16_t port, std::size_t ofOneAddress)
    : port_(port), ofOneAddress_(ofOneAddress), poll_(epoll_create1(EPOLL_CLOEXEC)), room_(64 * 1024) {
  if (poll_ < 0) fail("epoll");
}
Connections::~Connections() {
  for (One& one : all_) close(one);
  ::close(poll_);
}

std::size_t Connections::add(Taker taker, EndTaker ended) {
  std::size_t const number = all_.size();
  int const socket = beginConnection(number / ofOneAddress_, port_);
  if (socket < 0) fail("connecting");
  all_.push_back({socket, {}, {}, std::move(taker), std::move(ended)});
  int const on = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  epoll_event event{};
  event.events = EPOLLIN | EPOLLOUT | EPOLLET;
  event.data.u64 = number;
  if (epoll_ctl(poll_, EPOLL_CTL_ADD, socket, &event) != 0) fail("epoll");
  return number;
}

void Connections::send(std::size_t connection, std::string_view bytes) {
  One& one = all_[connection];
  bool const isFirst = one.out.empty();
  one.out += bytes;
  if (isFirst) flush(one);
}

void Connections::close(std::size_t connection) { close(all_[connection]); }

void Connections::close(One& one) {
  if (one.socket >= 0) ::close(std::exchange(one.socket, -1));
}

void Connections::end(One& one, char const* what) {
  if (!one.ended) fail(what);
  close(one);
  one.ended();
}

void Connections::flush(One& one) {
  while (one.socket >= 0 && !one.out.empty()) {
    auto const sent = ::send(one.socket, one.out.data(), one.out.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EAGAIN) return;
    if (sent < 0) return end(one, "sending");
    one.out.erase(0, static_cast<std::size_t>(sent));
  }
  one.out.shrink_to_fit();
}

void Connections::read(One& one) {
  while (one.socket >= 0) {
    auto const count = recv(one.socket, room_.data(), room_.size(), 0);
    if (count < 0 && errno == EAGAIN) break;
    if (count == 0) errno = ECONNRESET;
    if (count <= 0) {
      one.taker(one.in);
      return end(one, "reading");
    }
    one.in.append(room_.data(), static_cast<std::size_t>(count));
  }
  one.taker(one.in);
  if (one.in.empty()) one.in.shrink_to_fit();
}

void Connections::work(Clock::time_point until, std::function<bool()> const& isDone) {
  std::array<epoll_event, 256> events{};
  for (auto now = Clock::now();; now = Clock::now()) {
    if (isDone && isDone()) return;
    auto left = std::max<std::chrono::nanoseconds>(until - now, Clock::duration(0));
    if (isDone) left = std::min<std::chrono::nanoseconds>(left, kBetweenQuestions);
    auto const seconds = std::chrono::floor<std::chrono::seconds>(left);
    timespec const wait{seconds.count(), (left - seconds).count()};
    int const count = epoll_pwait2(poll_, events.data(), static_cast<int>(events.size()), &wait, nullptr);
    if (count < 0 && errno != EINTR) fail("epoll");
    for (int i = 0; i < count; ++i) {
      One& one = all_[events[static_cast<std::size_t>(i)].data.u64];
      if ((events[static_cast<std::size_t>(i)].events & EPOLLOUT) != 0) flush(one);
      if ((events[static_cast<std::size_t>(i)].events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0) read(one);
    }
    if (now >= until) return;
  }
}

}  // namespace ServeLoad
