// The options of `enrolix serve`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/net/http_server.h"
#include "agent/program/command_line.h"
#include "agent/server/event_log.h"
#include "agent/server/service.h"
#include "agent/server/tree_api.h"

namespace Agent {

/// `enrolix serve`: the registry as a service.
struct ServeOptions {
  /// The registry's library; where it belongs if absent.
  std::optional<std::string> library;
  std::string address = "127.0.0.1";
  /// 0 for any that is free.
  std::uint16_t port = 7400;
  /// The file of state; that of the user if absent. Nothing is kept if `isMemory`.
  std::optional<std::string> state;
  bool isMemory = false;
  /// A state that lacks what was answered is gone on with if it holds this revision.
  std::optional<Revision> acceptedLoss;
  LogFormat logFormat = LogFormat::kText;
  ServiceOptions service;
  HttpLimits http;
  ApiLimits api;
  /// Names under which clients reach the agent.
  std::vector<std::string> hosts;
};

void describe(CommandLine& line, ServeOptions& options);

}  // namespace Agent
