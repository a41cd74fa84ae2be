// Following the server's changes over broken connections and restarts.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "agent/client/connection.h"
#include "agent/document/export.h"
#include "agent/document/json.h"

namespace Agent {

/// What a watch tells.
struct FollowedEvent {
  enum class Kind {
    kChange,    ///< The document at `path` is now `value`, null if it has gone.
    kResync,    ///< All that was known under the prefix is to be forgotten; what stands follows as changes.
    kSynced,    ///< All that stands has followed.
    kCaughtUp,  ///< All that had happened when the watch began has been told. Comes once.
    kShutdown,  ///< The server stops.
  };
  Kind kind = Kind::kChange;
  std::uint64_t revision = 0;
  std::string path;
  Json value;
};

/// What is to be followed, and how.
struct FollowRequest {
  std::string prefix;
  /// What came behind this event, its id or a revision of the present history; from now on if absent.
  std::optional<std::string> after;
  /// Waits before the next attempt; false gives up.
  std::function<bool(std::chrono::milliseconds time)> sleep;
  /// Told in one line why the connection is made anew.
  std::function<void(std::string_view line)> note;
  /// If set, asked when all that has come so far was told, also if that was nothing but a sign of life; true ends.
  std::function<bool()> isEnough;
};

/// Calls `take` with all that happens until it returns false. A connection that breaks, and a server that stops, are
/// waited for; what was missed meanwhile is told then, or everything anew. Throws an HttpError if there never was a
/// connection, and a ClientFailure if the server refuses or cannot be understood.
ENROLIX_EXPORT void followChanges(Connection const& connection, FollowRequest const& request,
                                  std::function<bool(FollowedEvent const& event)> const& take);

}  // namespace Agent
