// Checks the parts of a call, and writes responses.
#include "agent/server/api_call.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "agent/document/number.h"

namespace Agent {
namespace {

[[noreturn]] void refuseParameter(std::string const& what, std::string const& expected, std::string_view found) {
  throw HttpProblem(400, what + ": expected " + expected + ", found " + inQuotes(found));
}

[[noreturn]] void refuseRevision(std::string const& expected, Revision found, std::string const& path) {
  std::string const what = found != 0 ? "revision " + std::to_string(found) : "none";
  throw HttpProblem(412, "expected " + expected + ", found " + what, path);
}

}  // namespace

void TreeApi::Call::requireRevision(Revision revision, std::string const& path) const {
  if (auto const none = findField(request.fields, "If-None-Match"); none && !isRead()) {
    if (*none != "*") refuseParameter("If-None-Match", "*", *none);
    if (revision != 0) refuseRevision("none", revision, path);
  }
  auto const field = findField(request.fields, "If-Match");
  if (!field) return;
  std::string_view wanted = *field;
  if (wanted.size() > 1 && wanted.front() == '"' && wanted.back() == '"') wanted = wanted.substr(1, wanted.size() - 2);
  bool const isMet = wanted == "*" ? revision != 0 : parseRevision(wanted, "If-Match") == revision;
  if (isMet) return;
  refuseRevision("revision " + std::string(wanted), revision, path);
}

std::optional<Service::TimeToLive> TreeApi::Call::timeToLive() const {
  auto const found = target.query.find("ttl");
  if (found == target.query.end()) return std::nullopt;
  std::string const& text = found->second;
  double seconds = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds, std::chars_format::fixed);
  bool const isNumber = error == std::errc() && end == text.data() + text.size() && std::isfinite(seconds);
  if (!isNumber || std::signbit(seconds) || seconds > static_cast<double>(kLongestSeconds))
    refuseParameter("ttl", "seconds from 0 to " + std::to_string(kLongestSeconds), text);
  if (seconds == 0) return Service::TimeToLive{std::nullopt};
  auto const milliseconds = std::chrono::milliseconds(std::llround(std::ceil(seconds * 1000)));
  return Service::TimeToLive{milliseconds};
}

bool TreeApi::Call::flag(std::string_view name) const {
  auto const found = target.query.find(name);
  if (found == target.query.end() || found->second == "0") return false;
  if (found->second != "1") refuseParameter(std::string(name), "0 or 1", found->second);
  return true;
}

std::size_t TreeApi::Call::number(std::string_view name) const {
  std::size_t number = 0;
  std::string const& text = target.query.find(name)->second;
  if (!readNumber(text, number)) refuseParameter(std::string(name), "a number of digits", text);
  return number;
}

std::string TreeApi::Call::parameter(std::string_view name) const {
  auto const found = target.query.find(name);
  return found != target.query.end() ? found->second : std::string();
}

Revision parseRevision(std::string_view text, std::string const& what) {
  Revision revision = 0;
  if (!readNumber(text, revision)) refuseParameter(what, "a revision, as digits", text);
  return revision;
}

std::optional<Revision> parseEventId(std::string_view text, HistoryId const& present, std::string const& what) {
  std::size_t const at = text.find('@');
  Revision revision = 0;
  std::string_view const history = at == std::string_view::npos ? std::string_view(present) : text.substr(at + 1);
  bool const isHistory =
      history.size() == present.size() && history.find_first_not_of("0123456789abcdef") == std::string_view::npos;
  if (!readNumber(text.substr(0, at), revision) || !isHistory)
    refuseParameter(what, "a revision, as digits, or an event's id, REVISION@HISTORY", text);
  return history == present ? std::optional(revision) : std::nullopt;
}

Path pathOf(std::string const& text) {
  try {
    return parsePath(text);
  } catch (InputError& error) {
    error.pathIs(printable(text, 600));
    throw HttpProblem(400, error);
  }
}

Json bodyOf(HttpRequest const& request, std::string const& path, ApiLimits const& limits) {
  if (request.body.size() > limits.documentBytes)
    throw HttpProblem(413, "the document is longer than " + std::to_string(limits.documentBytes) + " bytes", path);
  try {
    return readJson(request.body, nullptr, limits.document);
  } catch (InputError& error) {
    error.pathIs(path);
    throw inputProblem(error);
  }
}

HttpProblem inputProblem(InputError const& error) {
  return {dynamic_cast<LimitError const*>(&error) != nullptr ? 413 : 400, error};
}

Revision revisionAt(Documents const& documents, Path const& path) {
  std::string const text = toText(path);
  if (!path.place.isFolder()) {
    auto const found = documents.find(text);
    return found != documents.end() ? found->second.revision : 0;
  }
  Revision newest = 0;
  auto const [begin, end] = withPrefix(documents, text + "/");
  for (auto at = begin; at != end; ++at) newest = std::max(newest, at->second.revision);
  return newest;
}

bool applyOne(Service& service, Operation const& operation, std::optional<Service::TimeToLive> timeToLive) {
  try {
    TurnResult const result = service.apply({&operation, 1}, timeToLive);
    if (result.failure) throw HttpProblem(500, *result.failure, toText(operation.path));
    return !result.turn.changes.empty();
  } catch (InputError const& error) {
    throw refusal(error);
  }
}

HttpProblem refusal(InputError const& error) {
  if (dynamic_cast<QuotaRefusal const*>(&error) != nullptr) return {507, error};
  return {dynamic_cast<PathRefusal const*>(&error) != nullptr ? 403 : 422, error};
}

HttpProblem storeProblem(StoreError const& error) {
  bool const isFull = dynamic_cast<StoreFull const*>(&error) != nullptr;
  HttpProblem problem(isFull ? 507 : 503, error.what());
  problem.isOutcomeUnknown = dynamic_cast<OutcomeUnknown const*>(&error) != nullptr;
  return problem;
}

HttpResponse emptyResponse(int status, std::string_view contentType) {
  HttpResponse response;
  response.status = status;
  response.fields = {
      {"Content-Type", std::string(contentType)}, {"Cache-Control", "no-store"}, {"X-Content-Type-Options", "nosniff"}};
  return response;
}

HttpResponse jsonResponse(int status, Revision revision, std::string body) {
  HttpResponse response = emptyResponse(status, "application/json");
  response.fields.emplace_back("Enrolix-Revision", std::to_string(revision));
  response.body = std::move(body);
  return response;
}

HttpResponse revisionResponse(Revision revision) {
  return jsonResponse(200, revision, "{\"revision\":" + std::to_string(revision) + "}\n");
}

Json problemJson(HttpProblem const& problem) {
  Json json{{"status", problem.status()}};
  if (!problem.error().path().empty()) json["path"] = problem.error().path();
  if (!problem.error().field().empty()) json["field"] = problem.error().field();
  json["reason"] = problem.error().reason();
  if (problem.isOutcomeUnknown) json["outcome"] = "unknown";
  return json;
}

HttpResponse problemResponse(HttpProblem const& problem) {
  HttpResponse response = emptyResponse(problem.status(), "application/json");
  if (!problem.allow.empty()) response.fields.emplace_back("Allow", problem.allow);
  if (problem.status() == 503 || problem.status() == 507 || problem.status() == 429)
    response.fields.emplace_back("Retry-After", "1");
  response.body = Json{{"error", problemJson(problem)}}.dump() + "\n";
  return response;
}

}  // namespace Agent
