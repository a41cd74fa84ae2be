// Writes requests and reads refusals.
#include "agent/client/client.h"

#include <charconv>
#include <utility>

#include "agent/document/input_error.h"

namespace Agent {
namespace {

void appendEncoded(std::string& to, std::string_view text, std::string_view kept) {
  constexpr std::string_view kUnreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  for (char const byte : text) {
    if (kUnreserved.find(byte) != std::string_view::npos || kept.find(byte) != std::string_view::npos) {
      to += byte;
      continue;
    }
    auto const code = static_cast<unsigned char>(byte);
    to.append({'%', kDigits[code >> 4u], kDigits[code & 15u]});
  }
}

// The first line of what is no JSON, short.
std::string plainReason(HttpResponse const& response) {
  std::string const line = response.body.substr(0, response.body.find_first_of("\r\n"));
  return "the server answered " + std::to_string(response.status) + (line.empty() ? "" : ": " + printable(line, 200));
}

std::string textMember(Json const& object, std::string_view key) {
  auto const found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::optional<std::uint64_t> numberMember(Json const& object, std::string_view key) {
  auto const found = object.find(key);
  return found != object.end() && found->is_number_unsigned() ? std::optional(found->get<std::uint64_t>())
                                                              : std::nullopt;
}

}  // namespace

bool isColoured(ClientCommonOptions const& options, ClientSurroundings const& surroundings) {
  if (options.colour != ColourChoice::kAuto) return options.colour == ColourChoice::kAlways;
  return surroundings.isTerminal && surroundings.areColoursWelcome;
}

std::string documentTarget(std::string_view path) {
  std::string target = "/v1/tree/";
  appendEncoded(target, path, "/:");
  // A segment of dots would be taken for a way up by a proxy.
  for (std::string_view const dots : {"/..", "/."}) {
    for (std::size_t at = target.find(dots); at != std::string::npos; at = target.find(dots, at + 1)) {
      std::size_t const end = at + dots.size();
      if (end != target.size() && target[end] != '/') continue;
      target.replace(at + 1, dots.size() - 1, dots.size() == 3 ? "%2E%2E" : "%2E");
    }
  }
  return target;
}

std::string queryValue(std::string_view text) {
  std::string value;
  appendEncoded(value, text, "/:");
  return value;
}

HttpRequest makeRequest(std::string method, std::string target, IfMatch const& ifMatch) {
  HttpRequest request;
  request.method = std::move(method);
  request.target = std::move(target);
  if (ifMatch) request.fields.emplace_back("If-Match", "\"" + std::to_string(*ifMatch) + "\"");
  return request;
}

Refusal readRefusal(HttpResponse const& response) {
  Refusal refusal;
  refusal.status = response.status;
  try {
    Json const body = readJson(response.body);
    Json const& error = body.at("error");
    refusal.path = textMember(error, "path");
    refusal.field = textMember(error, "field");
    refusal.reason = textMember(error, "reason");
    refusal.line = numberMember(error, "line");
    refusal.applied = numberMember(body, "applied");
  } catch (std::exception const&) {
    // Whatever stood between answered in its own words.
  }
  if (refusal.reason.empty()) refusal.reason = plainReason(response);
  return refusal;
}

std::string refusalText(Refusal const& refusal) {
  InputError error(refusal.field, printable(refusal.reason, 1000));
  error.pathIs(refusal.path);
  return placedReason(error);
}

ExitCode exitCode(Refusal const& refusal) {
  return refusal.status == 412 ? ExitCode::kPreconditionFailed : ExitCode::kRefused;
}

void requireSuccess(HttpResponse const& response) {
  if (response.status >= 200 && response.status < 300) return;
  Refusal const refusal = readRefusal(response);
  throw ClientFailure(exitCode(refusal), refusalText(refusal));
}

std::optional<std::uint64_t> readNumber(std::string_view text) {
  std::uint64_t number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::uint64_t revisionOf(HttpResponse const& response) {
  auto const field = findField(response.fields, "Enrolix-Revision");
  auto const revision = field ? readNumber(*field) : std::nullopt;
  if (!revision) throw ClientFailure(ExitCode::kNoAnswer, "the server's answer has no revision: is it a registry?");
  return *revision;
}

void understanding(std::function<void()> const& understand) {
  std::string reason;
  try {
    return understand();
  } catch (InputError const& error) {
    reason = error.reason();
  } catch (Json::exception const& error) {
    reason = error.what();
  }
  throw ClientFailure(ExitCode::kNoAnswer, "the server's answer cannot be understood: " + printable(reason, 200));
}

}  // namespace Agent
