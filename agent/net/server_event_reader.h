// Server-sent events: a stream of text taken apart, in whatever pieces it comes.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Agent {

/// One event as the stream names it.
struct ServerEvent {
  std::string name = "message";
  /// Its lines of data, joined by line breaks.
  std::string data;
};

/// A stream that holds an event of more than `ServerEventReader::kMaximumBytes`.
class EventTooLong : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Takes pieces of a stream and gives whole events. An event that the stream's end cuts short is never given.
class ServerEventReader {
 public:
  /// An event may hold this many bytes: more than the longest document takes.
  static constexpr std::size_t kMaximumBytes = 32u * 1024 * 1024;

  /// What takes the events; `lastId()` is the event's own by then if it has one. It returns whether to go on.
  using Taker = std::function<bool(ServerEvent const& event)>;

  /// Takes the next piece. Returns whether to go on; after a false nothing more is fed. Throws an EventTooLong.
  bool feed(std::string_view piece, Taker const& take);

  /// The last id that was complete: of an event, or alone. Empty before the first.
  std::string const& lastId() const { return lastId_; }

 private:
  bool endLine(Taker const& take);

  std::string line_;
  bool isFirstLine_ = true;
  /// The piece before ended with a CR, whose LF may follow.
  bool isAfterReturn_ = false;
  std::string name_;
  std::string data_;
  bool hasData_ = false;
  std::string id_;
  std::string lastId_;
};

}  // namespace Agent
