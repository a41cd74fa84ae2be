// One line for every event of note.
#pragma once

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "agent/document/json.h"

namespace spdlog {
class logger;
}  // namespace spdlog

namespace Agent {

enum class LogFormat { kText, kJson };

/// The log, one line an event: its time and level, its name and its fields.
class EventLog {
 public:
  using Fields = std::initializer_list<std::pair<std::string_view, Json>>;

  /// Writes to standard error.
  explicit EventLog(LogFormat format);
  /// Writes nowhere.
  EventLog();
  ~EventLog();
  EventLog(EventLog const&) = delete;
  EventLog& operator=(EventLog const&) = delete;

  /// `event` is a name of letters and underscores; fields are printed as they are in JSON, `name=value` otherwise; what
  /// is null is left out.
  void info(std::string_view event, Fields fields);
  void warning(std::string_view event, Fields fields);
  void error(std::string_view event, Fields fields);

 private:
  std::string line(std::string_view event, Fields fields) const;

  LogFormat format_ = LogFormat::kText;
  std::unique_ptr<spdlog::logger> logger_;
};

}  // namespace Agent
