// Takes a stream of events apart line by line.
#include "agent/net/server_event_reader.h"

#include <utility>

namespace Agent {

bool ServerEventReader::feed(std::string_view piece, Taker const& take) {
  while (!piece.empty()) {
    if (isAfterReturn_ && piece.front() == '\n') piece.remove_prefix(1);
    isAfterReturn_ = false;
    std::size_t const end = piece.find_first_of("\r\n");
    line_ += piece.substr(0, end);
    if (line_.size() + data_.size() > kMaximumBytes)
      throw EventTooLong("an event is longer than " + std::to_string(kMaximumBytes) + " bytes");
    if (end == std::string_view::npos) return true;
    isAfterReturn_ = piece[end] == '\r';
    piece.remove_prefix(end + 1);
    if (!endLine(take)) return false;
  }
  return true;
}

bool ServerEventReader::endLine(Taker const& take) {
  std::string const kept = std::exchange(line_, {});
  std::string_view line = kept;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (std::exchange(isFirstLine_, false) && line.starts_with(kByteOrderMark)) line.remove_prefix(kByteOrderMark.size());
  if (line.empty()) {
    lastId_ = id_;
    ServerEvent event{std::exchange(name_, {}), std::exchange(data_, {})};
    if (event.name.empty()) event.name = ServerEvent().name;
    return !std::exchange(hasData_, false) || take(event);
  }
  std::size_t const colon = line.find(':');
  std::string_view const field = line.substr(0, colon);
  std::string_view value = colon == std::string_view::npos ? std::string_view() : line.substr(colon + 1);
  if (value.starts_with(' ')) value.remove_prefix(1);
  if (field == "event") name_ = value;
  if (field == "id" && value.find('\0') == std::string_view::npos) id_ = value;
  if (field == "data") {
    if (std::exchange(hasData_, true)) data_ += '\n';
    data_ += value;
  }
  return true;
}

}  // namespace Agent
