// Reads refusals.
#include "agent/client/failure.h"

#include "agent/document/input_error.h"
#include "agent/document/json_reader.h"

namespace Agent {
namespace {

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

FailureKind failureKind(Refusal const& refusal) {
  return refusal.status == 412 ? FailureKind::kPreconditionFailed : FailureKind::kRefused;
}

void requireSuccess(HttpResponse const& response) {
  if (response.status >= 200 && response.status < 300) return;
  Refusal const refusal = readRefusal(response);
  throw ClientFailure(failureKind(refusal), refusalText(refusal));
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
  throw ClientFailure(FailureKind::kNoAnswer, "the server's answer cannot be understood: " + printable(reason, 200));
}

}  // namespace Agent
