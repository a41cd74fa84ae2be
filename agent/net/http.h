// HTTP as the program sees it: requests and responses as plain values, and bodies that come piece by piece.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/document/export.h"

namespace Agent {

/// Header fields in order; names are compared without case.
using HttpFields = std::vector<std::pair<std::string, std::string>>;

/// Whether two names of fields, codings or hosts are the same: letters of either case are.
ENROLIX_EXPORT bool sameWithoutCase(std::string_view left, std::string_view right);

/// The value of the first field of that name; nothing if there is none.
ENROLIX_EXPORT std::optional<std::string_view> findField(HttpFields const& fields, std::string_view name);

/// No answer: no connection, a broken one, a time that ran out, or what is no HTTP. what() is one line that names the
/// server.
class ENROLIX_EXPORT HttpError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A source ends a piece that has become so long, in bytes.
inline constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;

/// A body whose pieces are asked for as fast as the reader takes them, so that a slow reader holds up no other. Used
/// on the event thread alone, first when the call that gave the response has returned. It is dropped behind its end and
/// when the reader has gone; a reader that has ended sending counts as gone once there is nothing for it. If `next()`
/// throws, the connection is broken off.
class BodySource {
 public:
  BodySource() = default;
  BodySource(BodySource const&) = delete;
  BodySource& operator=(BodySource const&) = delete;
  virtual ~BodySource() = default;

  /// The next piece, some 64 KiB at most unless one document is larger; empty if there is nothing now, nothing at all
  /// behind the end.
  virtual std::optional<std::string> next() = 0;

  /// What to call, once, when `next()` was empty and need not be so any longer. It may be called from anywhere but out
  /// of `next()` itself.
  void wakeIs(std::function<void()> wake) { wake_ = std::move(wake); }

 protected:
  void wake() {
    if (auto const call = std::exchange(wake_, nullptr)) call();
  }

 private:
  std::function<void()> wake_;
};

/// The rest of a body will not come: its client has gone, sends what is no HTTP or too much, or takes too long.
class BodyError : public std::runtime_error {
 public:
  BodyError(int status, std::string const& reason) : std::runtime_error(reason), status_(status) {}
  /// What the request is to be answered with.
  int status() const noexcept { return status_; }

 private:
  int status_;
};

/// The body of a request, to be asked for as it comes. What has not been asked for stays with the client, but for some
/// 64 KiB, and its time does not pass meanwhile. `next()` throws a BodyError behind what has come if the rest will not.
/// A request may be answered before; then the rest is thrown away as it comes.
class BodyReader : public BodySource {
 public:
  /// Of what was given, so much is held now, in bytes: it counts among all bodies. What is given is counted as held.
  virtual void heldIs(std::size_t bytes) = 0;
};

struct HttpRequest {
  std::string method = "GET";
  /// As in the request line: percent-encoded path and query.
  std::string target;
  HttpFields fields;
  std::string body;
  /// A server's: it had come in before the request before it was answered.
  bool isPipelined = false;
  /// A server's, instead of the body, if set.
  std::shared_ptr<BodyReader> reader{};
};

struct HttpResponse {
  int status = 200;
  HttpFields fields;
  std::string body;
  /// The body instead, if set: sent in chunks.
  std::unique_ptr<BodySource> source;
};

/// Takes the response to one request, once, at any time, on the event thread. If the client has gone the response is
/// dropped. If the last copy goes uncalled the client gets a 500.
using HttpAnswer = std::function<void(HttpResponse response)>;

/// Answers requests, at once or later. If it throws instead the client gets a 500 with what() as the reason.
using HttpHandler = std::function<void(HttpRequest request, HttpAnswer answer)>;

}  // namespace Agent
