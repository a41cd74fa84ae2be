// Composes the lines; the logging library adds time and level.
#include "agent/server/event_log.h"

#include <poll.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <unistd.h>

#include "agent/document/input_error.h"

namespace Agent {
namespace {

/// Standard error, as long as a reader takes what is written there: lines for which there is no room are lost, and the
/// next one says how many. A reader that does not read must not hold up the switches.
class StandardError final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 protected:
  void sink_it_(spdlog::details::log_msg const& message) override {
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    // Where there is room at all there is room for so much.
    if (line.size() > kRoom) line[kRoom - 1] = '\n';
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&room, 1, 0) <= 0 || (room.revents & POLLOUT) == 0) {
      ++lost_;
      return;
    }
    std::string text(line.data(), std::min<std::size_t>(line.size(), kRoom));
    bool const isLossTold = lost_ > 0 && text.size() + 30 < kRoom;
    if (isLossTold) {
      // The line ends with a break, and in JSON with a brace.
      bool const isJson = text.ends_with("}\n");
      text.insert(text.size() - (isJson ? 2 : 1), (isJson ? ",\"lost\":" : " lost=") + std::to_string(lost_));
    }
    // What was broken off ends with its own line.
    if (isBrokenOff_) text.insert(0, 1, '\n');
    auto const written = ::write(STDERR_FILENO, text.data(), text.size());
    if (written == static_cast<ssize_t>(text.size())) {
      if (isLossTold) lost_ = 0;
      isBrokenOff_ = false;
      return;
    }
    // A disk without room, say.
    ++lost_;
    if (written > 0) isBrokenOff_ = text[static_cast<std::size_t>(written) - 1] != '\n';
  }
  void flush_() override {}

 private:
  static constexpr std::size_t kRoom = 4096;

  std::size_t lost_ = 0;
  bool isBrokenOff_ = false;
};

}  // namespace

EventLog::EventLog(LogFormat format)
    : format_(format), logger_(std::make_unique<spdlog::logger>("enrolix", std::make_shared<StandardError>())) {
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
    if (value.is_null()) continue;
    text += isJson ? "," + Json(name).dump() + ":" : " " + std::string(name) + "=";
    if (!value.is_string()) {
      text += value.dump();
      continue;
    }
    std::string const printed = printable(value.get_ref<std::string const&>(), 1000);
    bool const isPlain = !printed.empty() && printed.find_first_of(" \"=\\") == std::string::npos;
    text += isJson || !isPlain ? Json(printed).dump() : printed;
  }
  return text;
}

void EventLog::info(std::string_view event, Fields fields) { logger_->info("{}", line(event, fields)); }
void EventLog::warning(std::string_view event, Fields fields) { logger_->warn("{}", line(event, fields)); }
void EventLog::error(std::string_view event, Fields fields) { logger_->error("{}", line(event, fields)); }

}  // namespace Agent
