// A reader of /v1/watch over a socket, which can be slow, stop reading and lose its connection.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "support/mirror.h"
#include "support/raw_connection.h"

namespace Test {

class EventReader {
 public:
  /// Reads documents whose paths begin with `prefix`, from behind the revision `after` on.
  EventReader(std::string prefix, Agent::Revision after, int receiveBuffer = 0)
      : receiveBuffer_(receiveBuffer), mirror_(std::move(prefix), after) {}

  /// Connects, again perhaps, and resumes where it was; the response's head.
  std::string connect(std::uint16_t port) {
    disconnect();
    connection_.emplace(port, receiveBuffer_);
    connection_->send("GET /v1/watch?prefix=" + mirror_.prefix() +
                      " HTTP/1.1\r\nHost: localhost\r\nLast-Event-ID: " + mirror_.id() + "\r\n\r\n");
    return connection_->head();
  }

  void disconnect() {
    mirror_.lose();
    connection_.reset();
  }

  /// Waits for the next piece; false at the end.
  bool read() {
    piece_ = connection_->chunk();
    mirror_.take(piece_);
    return !piece_.empty();
  }
  /// Reads until all up to that revision has been told; false if the stream ends before.
  bool readTo(Agent::Revision revision) {
    while (mirror_.told() < revision)
      if (!read()) return false;
    return true;
  }
  bool isReadable() const { return connection_->isReadable(); }
  std::string const& piece() const { return piece_; }

  Mirror const& mirror() const { return mirror_; }

 private:
  int receiveBuffer_;
  std::optional<RawConnection> connection_;
  std::string piece_;
  Mirror mirror_;
};

}  // namespace Test
