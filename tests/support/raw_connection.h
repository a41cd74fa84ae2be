// A TCP connection of a test, which can do all that a client should not.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace Test {

struct RawResponse {
  int status = 0;  // 0 if the connection ended before a whole response
  std::string head;
  std::string body;
};

/// Gives up, with a failure of the test, when nothing happens for half a minute.
class RawConnection {
 public:
  /// `receiveBuffer` makes a reader that takes little before it is full; 0 leaves it to the system. It comes from the
  /// loopback address 127.0.0.`from`.
  explicit RawConnection(std::uint16_t port, int receiveBuffer = 0, int from = 1)
      : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    if (receiveBuffer != 0) ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK - 1 + static_cast<std::uint32_t>(from));
    EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << std::strerror(errno);
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << std::strerror(errno);
  }
  RawConnection(RawConnection&& other) noexcept
      : socket_(std::exchange(other.socket_, -1)), bytes_(std::move(other.bytes_)) {}
  RawConnection& operator=(RawConnection&&) = delete;
  ~RawConnection() { close(); }

  /// Whether all of it went out; a server may have closed meanwhile.
  bool send(std::string_view bytes) const {
    while (!bytes.empty()) {
      auto const count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count < 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  void endSending() const { ::shutdown(socket_, SHUT_WR); }

  void close() {
    if (socket_ >= 0) ::close(std::exchange(socket_, -1));
  }

  /// Closes so that the other side sees an error.
  void reset() {
    linger const now{1, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    close();
  }

  /// The next response. That to HEAD has no body.
  RawResponse response(bool toHead = false) {
    RawResponse response;
    if (!readTo("\r\n\r\n", response.head)) return {};
    response.status = std::stoi(response.head.substr(9, 3));
    if (toHead || response.status / 100 == 1 || response.status == 204) return response;
    if (std::string const length = field(response.head, "Content-Length"); !length.empty()) {
      if (!read(std::stoul(length), response.body)) return {};
    } else if (field(response.head, "Transfer-Encoding") == "chunked") {
      for (std::string piece = chunk(); !piece.empty(); piece = chunk()) response.body += piece;
      std::string end;
      if (!readTo("\r\n", end) || end != "\r\n") return {};
    } else {
      response.body = rest();
    }
    return response;
  }

  /// The head of the next response alone.
  std::string head() {
    std::string head;
    readTo("\r\n\r\n", head);
    return head;
  }

  /// The next chunk, without its end if it is the last one; empty too if the connection ended before.
  std::string chunk() {
    std::string line;
    std::string piece;
    if (!readTo("\r\n", line)) return "";
    std::size_t const size = std::stoul(line, nullptr, 16);
    if (size == 0 || !read(size, piece)) return "";
    std::string end;
    return read(2, end) && end == "\r\n" ? piece : "";
  }

  /// Takes so many bytes or fewer from the system, and throws them away; how many they were.
  std::size_t take(std::size_t most) const {
    std::string part(most, ' ');
    auto const count = ::recv(socket_, part.data(), part.size(), MSG_DONTWAIT);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
  }

  /// All that comes until the other side has ended or broken off.
  std::string rest() {
    while (more()) {
    }
    return std::exchange(bytes_, "");
  }

  /// Whether the other side ends without another byte.
  bool ends() { return bytes_.empty() && !more(); }

  /// Whether there is something to read, or an end, without waiting.
  bool isReadable() const {
    pollfd waiting{socket_, POLLIN, 0};
    return !bytes_.empty() || ::poll(&waiting, 1, 0) > 0;
  }

  static std::string field(std::string const& head, std::string const& name) {
    std::size_t const at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos) return "";
    std::size_t const begin = at + name.size() + 4;
    return head.substr(begin, head.find("\r\n", begin) - begin);
  }

 private:
  bool readTo(std::string_view end, std::string& text) {
    std::size_t at = 0;
    while ((at = bytes_.find(end)) == std::string::npos)
      if (!more()) return false;
    text = bytes_.substr(0, at + end.size());
    bytes_.erase(0, at + end.size());
    return true;
  }

  bool read(std::size_t size, std::string& text) {
    while (bytes_.size() < size)
      if (!more()) return false;
    text = bytes_.substr(0, size);
    bytes_.erase(0, size);
    return true;
  }

  bool more() {
    pollfd waiting{socket_, POLLIN, 0};
    if (::poll(&waiting, 1, 30'000) <= 0) {
      ADD_FAILURE() << "nothing came for half a minute";
      return false;
    }
    std::array<char, 65536> part;
    auto const count = ::recv(socket_, part.data(), part.size(), 0);
    if (count <= 0) return false;
    bytes_.append(part.data(), static_cast<std::size_t>(count));
    return true;
  }

  int socket_;
  std::string bytes_;
};

}  // namespace Test
