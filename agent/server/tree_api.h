// The HTTP interface: what each route does, and with which status it answers.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "agent/document/json_reader.h"
#include "agent/net/http.h"
#include "agent/net/url.h"
#include "agent/server/door.h"
#include "agent/server/request_queue.h"
#include "agent/server/service.h"

namespace Agent {

/// What is too much; a client that wants more is refused.
struct ApiLimits {
  /// Readers of changes at a time.
  std::size_t watches = 65'536;
  /// Documents in one batch, and in one that is atomic.
  std::size_t batch = 100'000;
  std::size_t atomicBatch = 10'000;
  /// Copies of the whole state at a time.
  std::size_t backups = 16;
  /// The text of a document that is put, in bytes, and what it holds.
  std::size_t documentBytes = 1024 * 1024;
  JsonLimits document = {.values = 65'536};
};

class HttpProblem;

/// Answers requests from a service. All on the service's thread; the service and the loop outlive it.
class TreeApi {
  struct Call;

 public:
  /// One kind of request that is taken: a row of the table of routes.
  struct Route {
    /// What a route may be, as bits of `traits`.
    enum Trait : unsigned {
      kConditional = 1,    ///< If-Match and If-None-Match are heeded.
      kRepeatable = 2,     ///< Sent again, as after an answer that was lost, it changes nothing more.
      kBetweenTurns = 4,   ///< It is not answered in the middle of a turn that takes long.
      kReadAsItComes = 8,  ///< It is answered when its header is in, and reads the body itself.
    };

    /// With GET, HEAD is taken too.
    std::string_view method;
    /// The path of the request; `<path>` at its end stands for the path of any document, and `<switch>` for the name of
    /// a registration.
    std::string_view resource;
    /// What the query may have, as the documents write it: "prefix=P&after=ID".
    std::string_view query;
    unsigned traits;
    /// What waits longer than others. A route of single documents is as urgent as what its documents come from, and a
    /// request that is long has time.
    Urgency urgency;
    void (TreeApi::*handle)(Call& call);
  };
  /// The table of routes, in the order of the documents. The answers 404 and 405 and the refusal of unknown parameters
  /// are made of it.
  static std::span<Route const> routes();

  /// `warning` is told to all that ask how the agent is, unless it is empty.
  TreeApi(EventLoop& loop, Service& service, ApiLimits const& limits, Door door = Door(), std::string warning = {})
      : loop_(loop),
        service_(service),
        limits_(limits),
        door_(std::move(door)),
        warning_(std::move(warning)),
        queue_(loop, [this] { return service_.isApplying(); }) {}

  /// Answers when it is the request's turn. What a request asks for that is wrong is answered with a status from 400 up
  /// and `{"error": {"status", "path", "field", "reason"}}`, of which path and field are there where they are known.
  void handle(HttpRequest request, HttpAnswer answer);

  /// The response to what is refused for another reason.
  static HttpResponse problem(int status, std::string const& reason);

  /// Whether the request is for a route that is vital.
  static bool isVital(HttpRequest const& request);

  /// Whether the request is for a route that reads the body itself. If it comes with its body all the same, that is
  /// taken too.
  static bool isReadAsItComes(HttpRequest const& request);

  /// From now on nothing is answered but that the agent stops.
  void stop() { isStopping_ = true; }

 private:
  class BatchText;
  struct Batch;

  template <class Work>
  void answering(Call& call, Work const& work);
  void queue(Call& call, Route const& route, bool mayInterrupt);
  void answer(Call& call, Route const& route);
  bool isRefresh(Call const& call) const;
  void refuse(Call& call, HttpProblem const& problem);
  void requireRevision(Call const& call) const;
  void getDocument(Call& call);
  void putDocument(Call& call);
  void deleteDocument(Call& call);
  void listDocuments(Call& call);
  void postBatch(Call& call);
  static std::optional<Operation> next(Batch& batch, std::size_t most);
  void applyWhole(Batch& batch);
  bool take(Batch& batch, Operation operation);
  bool gather(std::shared_ptr<Batch> const& batch);
  void await(std::shared_ptr<Batch> const& batch);
  void rouse(std::shared_ptr<Batch> const& batch);
  void goOn(std::shared_ptr<Batch> const& batch);
  void goOnLater(std::shared_ptr<Batch> const& batch);
  void forget(std::shared_ptr<Batch> const& batch);
  void keep(std::shared_ptr<Batch> const& batch);
  void finish(std::shared_ptr<Batch> const& batch);
  void answerDocument(Call& call, Revision revision, DocumentText const& text, bool hasTag = false);
  void listSwitches(Call& call);
  void getSwitch(Call& call);
  void watch(Call& call);
  void backup(Call& call);
  void health(Call& call);
  void readiness(Call& call);
  void tellHealth(Call& call, int status);
  void replyWhenKept(HttpAnswer answer, HttpResponse response);
  void judgeWhenKept(Call& call, HttpResponse response);

  EventLoop& loop_;
  Service& service_;
  ApiLimits limits_;
  Door door_;
  std::string warning_;
  RequestQueue queue_;
  /// Atomic batches that are whole and have not ended; the first one is being read or applied.
  std::deque<std::shared_ptr<Batch>> atomic_;
  /// Batches that wait for their clients.
  std::set<std::shared_ptr<Batch>> awaited_;
  bool isStopping_ = false;
};

}  // namespace Agent
