// Writes the text of HTTP messages.
#include "agent/net/http_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

namespace Agent {
namespace {

// A value that held the end of a line would be a field of its own to the reader.
std::string inOneLine(std::string_view text) {
  std::string line(text);
  std::replace_if(
      line.begin(), line.end(), [](char letter) { return letter == '\r' || letter == '\n' || letter == '\0'; }, ' ');
  return line;
}

void appendField(std::string& head, std::string_view name, std::string_view value) {
  head.append(inOneLine(name)).append(": ").append(inOneLine(value)).append("\r\n");
}

void appendFields(std::string& head, HttpFields const& fields) {
  for (auto const& [name, value] : fields) appendField(head, name, value);
}

}  // namespace

std::string responseHead(HttpResponse const& response, std::string_view phrase, Framing framing,
                         std::string_view connection, std::time_t now) {
  std::string head = "HTTP/1.1 " + std::to_string(response.status) + " ";
  head.append(phrase).append("\r\n");
  appendField(head, "Date", httpDate(now));
  appendFields(head, response.fields);
  if (framing == Framing::Length) appendField(head, "Content-Length", std::to_string(response.body.size()));
  if (framing == Framing::Chunked) appendField(head, "Transfer-Encoding", "chunked");
  if (!connection.empty()) appendField(head, "Connection", connection);
  return head.append("\r\n");
}

std::string requestHead(HttpRequest const& request, std::string_view host) {
  std::string head = inOneLine(request.method) + " " + inOneLine(request.target) + " HTTP/1.1\r\n";
  appendField(head, "Host", host);
  appendFields(head, request.fields);
  bool const mayHaveBody = request.method == "POST" || request.method == "PUT";
  if (mayHaveBody || !request.body.empty()) appendField(head, "Content-Length", std::to_string(request.body.size()));
  return head.append("\r\n");
}

std::string chunkHead(std::size_t bytes) {
  std::array<char, 16> digits;
  auto const end = std::to_chars(digits.data(), digits.data() + digits.size(), bytes, 16).ptr;
  return std::string(digits.data(), end).append("\r\n");
}

std::string httpDate(std::time_t time) {
  std::tm parts{};
  gmtime_r(&time, &parts);
  static constexpr std::array kDays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr std::array kMonths{
      "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  // Not by strftime, whose names of days and months are the locale's.
  std::array<char, 64> text;
  int const length = std::snprintf(text.data(),
                                   text.size(),
                                   "%s, %02d %s %04d %02d:%02d:%02d GMT",
                                   kDays[static_cast<std::size_t>(parts.tm_wday)],
                                   parts.tm_mday,
                                   kMonths[static_cast<std::size_t>(parts.tm_mon)],
                                   parts.tm_year + 1900,
                                   parts.tm_hour,
                                   parts.tm_min,
                                   parts.tm_sec);
  return std::string(text.data(), static_cast<std::size_t>(length));
}

}  // namespace Agent
