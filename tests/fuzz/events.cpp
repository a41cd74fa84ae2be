// The stream of events that a client follows: the same events in whatever pieces, and what is no event of a server gets
// one line.
#include <optional>

#include "agent/client/failure.h"
#include "agent/client/follow_changes.h"
#include "agent/net/server_event_reader.h"
#include "fuzz/fuzz.h"

namespace {

using Agent::FollowedEvent;

/// Calls `take` with pieces of so many bytes until it returns false.
template <class Take>
bool feedPieces(std::string_view text, std::size_t step, Take const& take) {
  for (; !text.empty(); text.remove_prefix(std::min(step, text.size())))
    if (!take(text.substr(0, step))) return false;
  return true;
}

std::string eventsOf(std::string_view text, std::size_t step) {
  Agent::ServerEventReader reader;
  std::string told;
  feedPieces(text, step, [&](std::string_view piece) {
    return reader.feed(piece, [&](Agent::ServerEvent const& event) {
      told += event.name + "|" + event.data + "|" + reader.lastId() + "\n";
      return true;
    });
  });
  return told + reader.lastId();
}

/// What a client tells of a server that sends the text each time it is asked; nothing if it does not understand it. An
/// id that stands alone is looked at when its piece has been, so that it depends on the pieces when the client has
/// caught up, and whether it sees an id that is none.
std::optional<std::string> followed(std::string_view text, std::size_t step) {
  std::string told;
  Agent::Connection connection;
  connection.stream = [&](auto const&, auto const& begun, auto const& piece) {
    Agent::HttpResponse head;
    head.fields = {{"Enrolix-Revision", "5"}, {"Enrolix-History", "0123456789abcdef"}};
    return begun(head) && feedPieces(text, step, piece);
  };
  int attempts = 0;
  Agent::FollowRequest request;
  request.prefix = "registration/";
  request.after = "2@0123456789abcdef";
  request.sleep = [&](auto) { return ++attempts < 2; };
  request.note = [](std::string_view line) { Fuzz::requireOneLine(line); };
  try {
    followChanges(connection, request, [&](FollowedEvent const& event) {
      if (event.kind == FollowedEvent::Kind::kCaughtUp) return true;
      told += std::to_string(static_cast<int>(event.kind)) + " " + std::to_string(event.revision) + " " + event.path +
              " " + event.value.dump() + "\n";
      return true;
    });
  } catch (Agent::ClientFailure const& failure) {
    Fuzz::requireOneLine(failure.what());
    return std::nullopt;
  }
  return told;
}

}  // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text = Fuzz::textOf(data, size);
  Fuzz::requireEqual(eventsOf(text, 1), eventsOf(text, size + 1), "a stream holds the same events in any pieces");
  auto const whole = followed(text, size + 1);
  auto const inPieces = followed(text, 3);
  if (whole && inPieces) Fuzz::requireEqual(*inPieces, *whole, "a client is told the same in any pieces");
  return 0;
}
