// One call of the HTTP interface: what its parts must be, and how it is answered.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "agent/server/tree_api.h"

namespace Agent {

/// A refusal with its status.
class HttpProblem : public std::exception {
 public:
  HttpProblem(int status, InputError error) : status_(status), error_(std::move(error)) {}
  HttpProblem(int status, std::string const& reason, std::string path = "")
      : HttpProblem(status, InputError("", reason)) {
    error_.pathIs(std::move(path));
  }

  int status() const noexcept { return status_; }
  InputError const& error() const noexcept { return error_; }
  /// What a 405 says is allowed; empty otherwise.
  std::string allow;
  /// It is not known whether what was asked for has been done; otherwise nothing has.
  bool isOutcomeUnknown = false;

 private:
  int status_;
  InputError error_;
};

struct TreeApi::Call : std::enable_shared_from_this<Call> {
  Call(HttpRequest of, HttpAnswer to)
      : request(std::move(of)), answer([to = std::move(to), isAnswered = isAnswered](HttpResponse response) {
          *isAnswered = true;
          to(std::move(response));
        }) {}

  HttpRequest request;
  std::shared_ptr<bool> isAnswered = std::make_shared<bool>(false);
  HttpAnswer answer;
  Target target;
  /// The document that the target names; nothing for any other resource.
  std::optional<Path> document;
  /// What the target's path has for the name at the end of a resource that is no document.
  std::string rest;

  bool isRead() const { return request.method == "GET" || request.method == "HEAD"; }
  /// The route that the request takes, which also gives `document`. Throws a 404 if there is no such resource, a 405
  /// for a method that it does not take, and a 400 for what is no path of a document.
  Route const& findRoute();
  Urgency urgency(Route const& route) const;
  /// Throws a 400 for a parameter of the query that the route does not take.
  void requireParameters(Route const& route) const;
  /// Throws a 412 if the request is for another revision than this one, which is that of what stands at `path`.
  void requireRevision(Revision revision, std::string const& path) const;
  /// The parameter `ttl`, in seconds; 0 for ever.
  std::optional<Service::TimeToLive> timeToLive() const;
  /// A parameter that is 0 or 1, and 0 where it is missing.
  bool flag(std::string_view name) const;
  /// A parameter that is there, as a number.
  std::size_t number(std::string_view name) const;
  std::string parameter(std::string_view name) const;
};

/// A number of digits alone; throws an InputError that calls it `what`.
Revision parseRevision(std::string_view text, std::string const& what);

/// The id of an event, "REVISION@HISTORY", or a revision alone, which is one of the present history; throws an
/// InputError that calls it `what`. Nothing if it is of another history.
std::optional<Revision> parseEventId(std::string_view text, HistoryId const& present, std::string const& what);

/// As `parsePath()`, with the text as the error's path.
Path pathOf(std::string const& text);
/// The request's body as the document at `path`.
Json bodyOf(HttpRequest const& request, std::string const& path, ApiLimits const& limits);
/// What input is refused with that cannot be read.
HttpProblem inputProblem(InputError const& error);
/// The turn that last changed what stands at the path, or below it; 0 if there is nothing.
Revision revisionAt(Documents const& documents, Path const& path);
/// Applies one operation, in a turn of its own; returns whether it changed anything. Throws an HttpProblem: a 500 if a
/// handler failed, and what was asked for has been done and may not have been answered.
bool applyOne(Service& service, Operation const& operation, std::optional<Service::TimeToLive> timeToLive);
/// What an operation is refused with.
HttpProblem refusal(InputError const& error);
HttpProblem storeProblem(StoreError const& error);

/// A response without a body, which no reader may keep or take for another type than it says.
HttpResponse emptyResponse(int status, std::string_view contentType);
HttpResponse jsonResponse(int status, Revision revision, std::string body);
HttpResponse revisionResponse(Revision revision);
HttpResponse problemResponse(HttpProblem const& problem);
/// The member "error" of a problem's response.
Json problemJson(HttpProblem const& problem);

}  // namespace Agent
