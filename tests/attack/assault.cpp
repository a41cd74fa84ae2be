#include "tests/attack/assault.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "bench/connections.h"
#include "tests/attack/responses.h"

namespace Attack {
namespace {

/// Of the attackers, which are other machines than the honest clients.
constexpr std::size_t kFirstAddress = 66 * 256;

}  // namespace

Wire::Wire(Assault& assault, std::size_t from, int receiveBuffer)
    : assault_(assault),
      socket_(ServeLoad::beginConnection(kFirstAddress + from, assault.server.port(), receiveBuffer)) {
  if (socket_ >= 0 && await(POLLOUT))
    ++assault_[Unit::connections];
  else
    close();
}

void Wire::close() {
  if (socket_ >= 0) ::close(std::exchange(socket_, -1));
}

bool Wire::await(short what) const {
  pollfd waiting{socket_, what, 0};
  while (!assault_.isOver)
    if (poll(&waiting, 1, static_cast<int>(Assault::kStep.count())) > 0) return true;
  return false;
}

std::size_t Wire::sendSome(std::string_view bytes) {
  if (!isOpen()) return 0;
  auto const sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (sent < 0 && errno != EAGAIN) close();
  std::size_t const count = sent < 0 ? 0 : static_cast<std::size_t>(sent);
  assault_[Unit::bytes] += count;
  return count;
}

void Wire::sendOn(std::string_view bytes) { sent_ = (sent_ + sendSome(bytes.substr(sent_))) % bytes.size(); }

bool Wire::send(std::string_view bytes) {
  while (!bytes.empty()) {
    if (!isOpen() || !await(POLLOUT)) return false;
    bytes.remove_prefix(sendSome(bytes));
  }
  return isOpen();
}

int Wire::answer() {
  std::array<char, 16 * 1024> room;
  for (Response response; isOpen();) {
    if (takeResponse(bytes_, response)) {
      ++assault_[Unit::requests];
      if (response.status >= 400) ++assault_.refused;
      return response.status;
    }
    if (!await(POLLIN)) return 0;
    auto const count = recv(socket_, room.data(), room.size(), 0);
    if (count > 0)
      bytes_.append(room.data(), static_cast<std::size_t>(count));
    else if (count == 0 || errno != EAGAIN)
      close();
  }
  return 0;
}

// One that comes in two parts may be missed.
void Wire::countAnswers(std::string_view bytes) {
  constexpr std::string_view kBegin = "HTTP/1.1 ";
  for (std::size_t at = bytes.find(kBegin); at < bytes.size(); at = bytes.find(kBegin, at + kBegin.size())) {
    ++assault_[Unit::requests];
    std::string_view const status = bytes.substr(at + kBegin.size());
    if (status.starts_with('4') || status.starts_with('5')) ++assault_.refused;
  }
}

void Wire::drain() {
  std::array<char, 64 * 1024> room;
  while (isOpen()) {
    auto const count = recv(socket_, room.data(), room.size(), 0);
    if (count == 0 || (count < 0 && errno != EAGAIN)) close();
    countAnswers(std::string_view(room.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))));
    if (count < static_cast<ssize_t>(room.size())) return;
  }
}

void repeat(Assault& assault, std::function<std::string(std::size_t i)> const& request) {
  std::optional<Wire> wire;
  for (std::size_t i = 0; !assault.isOver; ++i) {
    if (!wire || !wire->isOpen()) wire.emplace(assault);
    // A server that refuses a body may answer before it has it all.
    wire->send(request(i));
    if (wire->answer() == 0 && !assault.isOver) assault.sleep(0.01);
  }
}

}  // namespace Attack
