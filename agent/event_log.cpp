// Composes the lines; the logging library adds time and level.
#include "agent/event_log.h"

#include <spdlog/logger.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include "agent/json_reader.h"

namespace Agent {

EventLog::EventLog(LogFormat format)
    : format_(format),
      logger_(std::make_unique<spdlog::logger>("enrolix", std::make_shared<spdlog::sinks::stderr_sink_st>())) {
  logger_->set_pattern(format == LogFormat::kJson ? R"({"time":"%Y-%m-%dT%H:%M:%S.%e%z","level":"%l",%v})"
                                                  : "%Y-%m-%dT%H:%M:%S.%e%z %l %v");
}

EventLog::EventLog()
    : logger_(std::make_unique<spdlog::logger>("enrolix", std::make_shared<spdlog::sinks::null_sink_st>())) {}

EventLog::~EventLog() = default;

std::string EventLog::line(std::string_view event, Fields fields) const {
  bool const isJson = format_ == LogFormat::kJson;
  std::string text = isJson ? "\"event\":" + Json(event).dump() : std::string(event);
  for (auto const& [name, value] : fields) {
    text += isJson ? "," + Json(name).dump() + ":" : " " + std::string(name) + "=";
    bool const isPlain = !value.empty() && value.find_first_of(" \"=\\") == std::string::npos;
    text += isJson || !isPlain ? Json(value).dump() : value;
  }
  return text;
}

void EventLog::info(std::string_view event, Fields fields) { logger_->info("{}", line(event, fields)); }
void EventLog::warning(std::string_view event, Fields fields) { logger_->warn("{}", line(event, fields)); }
void EventLog::error(std::string_view event, Fields fields) { logger_->error("{}", line(event, fields)); }

void EventLog::changed(DocumentChange const& change) {
  constexpr std::string_view kPrefix = "controller/switch/";
  if (!change.path.starts_with(kPrefix)) return;
  std::string const systemId = change.path.substr(kPrefix.size());
  Json const row = change.text ? Json::parse(*change.text) : Json();
  if (!row.is_object() || row["registeredSwitch"] != true)
    info("switch_not_ready", {{"systemId", systemId}});
  else if (row["switchConfig"].is_string())
    info("switch_ready", {{"switch", row["switchConfig"].get<std::string>()}, {"systemId", systemId}});
}

}  // namespace Agent
