// The HTTP interface: what each route does, and with which status it answers.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "agent/net/http.h"
#include "agent/net/url.h"
#include "agent/server/service.h"

namespace Agent {

/// What is too much; a client that wants more is refused.
struct ApiLimits {
  /// Readers of changes at a time.
  std::size_t watches = 2'000;
  /// Documents in one batch.
  std::size_t batch = 100'000;
  /// Copies of the whole state at a time.
  std::size_t backups = 16;
};

class HttpProblem;

/// Answers requests from a service. All on the service's thread; the service and the loop outlive it.
class TreeApi {
 public:
  TreeApi(EventLoop& loop, Service& service, ApiLimits const& limits)
      : loop_(loop), service_(service), limits_(limits) {}

  /// Answers, at once or later. What a request asks for that is wrong is answered with a status from 400 up and
  /// `{"error": {"status", "path", "field", "reason"}}`, of which path and field are there where they are known.
  void handle(HttpRequest request, HttpAnswer answer);

  /// The response to what is refused for another reason.
  static HttpResponse problem(int status, std::string const& reason);

  /// From now on nothing is answered but that the agent stops.
  void stop() { isStopping_ = true; }

 private:
  struct Call;
  struct Batch;

  void route(Call& call);
  void refuse(Call& call, HttpProblem const& problem);
  void tree(Call& call);
  void document(Call& call, std::string const& pathText);
  void getDocument(Call& call, std::string const& path);
  void putDocument(Call& call, Path const& path);
  void deleteDocument(Call& call, Path const& path);
  void listDocuments(Call& call);
  void postBatch(Call& call);
  void goOn(std::shared_ptr<Batch> const& batch);
  void keep(std::shared_ptr<Batch> const& batch);
  void finish(std::shared_ptr<Batch> const& batch);
  void watch(Call& call);
  void backup(Call& call);
  void health(Call& call, bool isReadiness);
  void replyWhenKept(HttpAnswer answer, HttpResponse response);
  void readWhenKept(Call& call, HttpResponse response);

  EventLoop& loop_;
  Service& service_;
  ApiLimits limits_;
  bool isStopping_ = false;
};

}  // namespace Agent
