// What a reader of server-sent events knows of the tree.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/document/json_reader.h"
#include "agent/store/store.h"

namespace Test {

/// Keeps the documents as the events tell them.
class Mirror {
 public:
  /// Of documents whose paths begin with `prefix`, from behind the revision `told` on.
  Mirror(std::string prefix, Agent::Revision told)
      : prefix_(std::move(prefix)), told_(told), id_(std::to_string(told)) {}

  /// The next bytes of the stream, cut anywhere.
  void take(std::string_view bytes) {
    text_ += bytes;
    std::size_t begin = 0;
    for (std::size_t end = text_.find("\n\n"); end != std::string::npos; end = text_.find("\n\n", begin)) {
      takeEvent(text_.substr(begin, end + 1 - begin));
      begin = end + 2;
    }
    text_.erase(0, begin);
  }
  /// The connection is lost, and with it the event that has begun.
  void lose() { text_.clear(); }

  std::map<std::string, std::string> const& documents() const { return documents_; }
  std::string const& prefix() const { return prefix_; }
  /// The names of all events so far.
  std::vector<std::string> const& events() const { return events_; }
  /// The place to resume from, as a revision and as the id of an event.
  Agent::Revision told() const { return told_; }
  std::string const& id() const { return id_; }
  int resyncs() const { return resyncs_; }
  /// Whether all that was forgotten at the last resync has been told anew.
  bool isWhole() const { return isWhole_; }

 private:
  void takeEvent(std::string const& block) {
    std::string event;
    std::string data;
    std::istringstream lines(block);
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("event: ")) event = line.substr(7);
      if (line.starts_with("data: ")) data = line.substr(6);
      if (!line.starts_with("id: ")) continue;
      id_ = line.substr(4);
      told_ = std::stoull(id_);
    }
    if (!event.empty()) events_.push_back(event);
    if (event == "resync") {
      documents_.clear();
      ++resyncs_;
      isWhole_ = false;
    }
    if (event == "synced") isWhole_ = true;
    if (event != "change") return;
    auto const change = Agent::Json::parse(data);
    std::string const path = change["path"];
    EXPECT_TRUE(path.starts_with(prefix_)) << path;
    if (change["value"].is_null())
      documents_.erase(path);
    else
      documents_[path] = change["value"].dump();
  }

  std::string prefix_;
  Agent::Revision told_;
  std::string id_;
  std::string text_;
  std::map<std::string, std::string> documents_;
  std::vector<std::string> events_;
  int resyncs_ = 0;
  bool isWhole_ = true;
};

}  // namespace Test
