// The commands that read many documents: `enrolix dump`, `watch` and `switches`.
#include <utility>

#include "agent/client/failure.h"
#include "agent/client/follow_changes.h"
#include "agent/client/requests.h"
#include "agent/document/input_error.h"
#include "agent/program/client_commands.h"
#include "agent/program/tree_members.h"
#include "agent/view/colours.h"
#include "agent/view/switch_table.h"
#include "agent/view/tree_text.h"

namespace Agent {
namespace {

/// Reads all documents under the prefix, at one revision.
void readTree(Connection const& connection, std::string const& prefix, TreeMembers::Filter const& isWanted,
              TreeMembers::Taker const& take) {
  TreeMembers members(isWanted, take);
  HttpResponse refused;
  auto const begun = [&](HttpResponse const& head) {
    refused.status = head.status;
    return true;
  };
  auto const piece = [&](std::string_view text) {
    if (refused.status == 200)
      understanding([&] { members.feed(text); });
    else
      refused.body += text;
    return true;
  };
  connection.stream(makeRequest("GET", "/v1/tree?prefix=" + queryValue(prefix)), begun, piece);
  requireSuccess(refused);
  understanding([&] { members.finish(); });
}

/// Prints in pieces that are worth a write.
class Batched {
 public:
  explicit Batched(ClientSurroundings const& surroundings) : surroundings_(surroundings) {}

  void write(std::string_view text) {
    constexpr std::size_t kEnough = 64u * 1024;
    text_ += text;
    if (text_.size() >= kEnough) finish();
  }
  void finish() {
    if (!text_.empty()) surroundings_.print(text_);
    text_.clear();
  }

 private:
  ClientSurroundings const& surroundings_;
  std::string text_;
};

std::string changeLine(FollowedEvent const& event, bool areColoursUsed) {
  std::string const path = printable(event.path);
  return std::to_string(event.revision) + "  " + coloured(path, areColoursUsed ? Colour::kCyan : Colour::kNone) + "  " +
         (event.value.is_null() ? "deleted\n" : jsonLine(event.value));
}

/// What a watch says of an event that is no change; empty if nothing.
std::string_view nameOf(FollowedEvent::Kind kind) {
  switch (kind) {
    case FollowedEvent::Kind::kResync:
      return "resync";
    case FollowedEvent::Kind::kSynced:
      return "synced";
    case FollowedEvent::Kind::kShutdown:
      return "shutdown";
    case FollowedEvent::Kind::kChange:
    case FollowedEvent::Kind::kCaughtUp:
      break;
  }
  return {};
}

std::string eventLine(FollowedEvent const& event, ClientCommonOptions const& common, bool areColoursUsed) {
  bool const isJson = common.format == OutputFormat::kJson;
  if (event.kind == FollowedEvent::Kind::kChange) {
    if (!isJson) return changeLine(event, areColoursUsed);
    return jsonLine({{"revision", event.revision}, {"path", event.path}, {"value", event.value}});
  }
  std::string const name(nameOf(event.kind));
  if (name.empty()) return {};
  bool const isStop = event.kind == FollowedEvent::Kind::kShutdown;
  if (!isJson) return (isStop ? "-" : std::to_string(event.revision)) + "  " + name + "\n";
  Json line = {{"event", name}};
  if (!isStop) line["revision"] = event.revision;
  return jsonLine(line);
}

FollowRequest feedOf(std::string prefix, std::optional<std::string> after, ClientSurroundings const& surroundings) {
  FollowRequest request;
  request.prefix = std::move(prefix);
  request.after = std::move(after);
  request.sleep = surroundings.sleep;
  request.note = surroundings.note;
  return request;
}

std::string switchesText(SwitchDocuments const& documents, ClientCommonOptions const& common, bool areColoursUsed) {
  std::string text;
  understanding([&] {
    auto const rows = switchRows(documents);
    text = common.format == OutputFormat::kJson ? switchLines(rows) : switchTable(rows, areColoursUsed);
  });
  return text;
}

/// The table again and again, as things change: over the last one on a terminal, behind it elsewhere.
class LiveTable {
 public:
  LiveTable(SwitchesOptions const& options, ClientSurroundings const& surroundings)
      : options_(options), surroundings_(surroundings) {}

  void follow() {
    Connection const connection = surroundings_.connect(options_.common);
    FollowRequest request = feedOf("", "0", surroundings_);
    request.isEnough = [this] {
      if (isWhole_) draw();
      return false;
    };
    followChanges(connection, request, [this](FollowedEvent const& event) {
      take(event);
      return true;
    });
  }

 private:
  void take(FollowedEvent const& event) {
    using Kind = FollowedEvent::Kind;
    if (event.kind == Kind::kResync) {
      documents_.clear();
      isChanged_ = true;
    }
    // While everything is told anew the last table stands.
    if (event.kind == Kind::kResync || event.kind == Kind::kSynced) isWhole_ = event.kind == Kind::kSynced;
    if (event.kind == Kind::kCaughtUp) isWhole_ = true;
    if (event.kind != Kind::kChange || !SwitchDocuments::isWanted(event.path)) return;
    isChanged_ = true;
    if (event.value.is_null())
      documents_.remove(event.path);
    else
      documents_.put(event.path, event.value);
  }

  void draw() {
    if (!std::exchange(isChanged_, false)) return;
    std::string text = switchesText(documents_, options_.common, isColoured(options_.common, surroundings_));
    if (text == shown_) return;
    shown_ = text;
    if (surroundings_.isTerminal)
      text.insert(0, "\x1B[H\x1B[2J");
    else
      text += "\n";
    surroundings_.print(text);
  }

  SwitchesOptions const& options_;
  ClientSurroundings const& surroundings_;
  SwitchDocuments documents_;
  bool isWhole_ = false;
  bool isChanged_ = true;
  std::string shown_;
};

}  // namespace

ExitCode runCommand(DumpOptions const& options, ClientSurroundings const& surroundings) {
  Connection const connection = surroundings.connect(options.common);
  Batched output(surroundings);
  TreeText tree([&](std::string_view text) { output.write(text); });
  bool const isJson = options.common.format == OutputFormat::kJson;
  auto const take = [&](std::string const& path, Json const& document) {
    if (isJson)
      output.write(jsonLine({{"path", path}, {"value", document}}));
    else
      tree.add(path, document);
  };
  readTree(
      connection, options.prefix, [](std::string const& /*path*/) { return true; }, take);
  if (!isJson) tree.finish();
  output.finish();
  return ExitCode::kDone;
}

ExitCode runCommand(WatchOptions const& options, ClientSurroundings const& surroundings) {
  Connection const connection = surroundings.connect(options.common);
  bool const areColoursUsed = isColoured(options.common, surroundings);
  std::optional<std::string> const after = options.isOnce ? options.after.value_or("0") : options.after;
  followChanges(connection, feedOf(options.prefix, after, surroundings), [&](FollowedEvent const& event) {
    std::string const line = eventLine(event, options.common, areColoursUsed);
    if (!line.empty()) surroundings.print(line);
    return !(options.isOnce && event.kind == FollowedEvent::Kind::kCaughtUp);
  });
  return ExitCode::kDone;
}

ExitCode runCommand(SwitchesOptions const& options, ClientSurroundings const& surroundings) {
  if (options.isWatched) {
    LiveTable(options, surroundings).follow();
    return ExitCode::kDone;
  }
  // One request for everything: parts that are asked for one by one could be of different revisions.
  Connection const connection = surroundings.connect(options.common);
  SwitchDocuments documents;
  readTree(connection, "", SwitchDocuments::isWanted, [&](std::string const& path, Json document) {
    documents.put(path, std::move(document));
  });
  surroundings.print(switchesText(documents, options.common, isColoured(options.common, surroundings)));
  return ExitCode::kDone;
}

}  // namespace Agent
