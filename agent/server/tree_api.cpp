// Takes a request to its route. The routes of single documents, and what the program says of itself.
#include "agent/server/tree_api.h"

#include "agent/server/api_call.h"

namespace Agent {

HttpResponse TreeApi::problem(int status, std::string const& reason) {
  return problemResponse(HttpProblem(status, reason));
}

// Does `work`, which answers the call; if it throws, the call is refused.
template <class Work>
void TreeApi::answering(Call& call, Work const& work) {
  try {
    work();
  } catch (HttpProblem const& problem) {
    refuse(call, problem);
  } catch (InputError const& error) {
    refuse(call, HttpProblem(400, error));
  } catch (StoreError const& error) {
    refuse(call, storeProblem(error));
  } catch (std::exception const& error) {
    if (!*call.isAnswered) refuse(call, HttpProblem(500, error.what()));
  }
}

void TreeApi::handle(HttpRequest request, HttpAnswer answer) {
  auto const call = std::make_shared<Call>(std::move(request), std::move(answer));
  answering(*call, [&] {
    if (isStopping_) throw HttpProblem(503, "the agent stops");
    call->target = parseTarget(call->request.target);
    door_.require(call->request, call->target.path);
    Route const& route = call->findRoute();
    call->requireParameters(route);
    // A heartbeat that says what it said before changes nothing; whether it does is seen when it is its turn.
    bool const isHeartbeat = call->document && call->document->place.expires() && call->request.method == "PUT";
    bool const isBetweenTurns = (route.traits & Route::kBetweenTurns) != 0;
    queue(*call, route, (call->isRead() && !isBetweenTurns) || isHeartbeat);
  });
}

void TreeApi::queue(Call& call, Route const& route, bool mayInterrupt) {
  queue_.add(
      call.urgency(route), mayInterrupt, [this, call = call.shared_from_this(), &route] { answer(*call, route); });
}

void TreeApi::answer(Call& call, Route const& route) {
  answering(call, [&] {
    if (service_.isApplying() && !call.isRead() && !isRefresh(call)) return queue(call, route, false);
    if (isStopping_) throw HttpProblem(503, "the agent stops");
    service_.catchUp();
    Service::LongTask const task(service_);
    if ((route.traits & Route::kConditional) != 0) requireRevision(call);
    (this->*route.handle)(call);
  });
}

bool TreeApi::isRefresh(Call const& call) const {
  Operation const operation{*call.document, bodyOf(call.request, toText(*call.document), limits_)};
  return service_.isRefresh({&operation, 1}, call.timeToLive());
}

// What a writer finds is told like any other answer: not before it is kept.
void TreeApi::refuse(Call& call, HttpProblem const& problem) {
  HttpResponse response = problemResponse(problem);
  response.fields.emplace_back("Enrolix-Revision", std::to_string(service_.watches().revision()));
  if (problem.status() == 412 && !call.isRead())
    judgeWhenKept(call, std::move(response));
  else if (problem.status() == 500)
    replyWhenKept(call.answer, std::move(response));
  else
    call.answer(std::move(response));
}

// A condition is about the document that is named, or about the tree.
void TreeApi::requireRevision(Call const& call) const {
  TreeDocuments const& found = call.isRead() ? service_.kept() : service_.latest();
  if (call.document)
    call.requireRevision(revisionAt(found.documents, *call.document), toText(*call.document));
  else
    call.requireRevision(found.revision, "");
}

void TreeApi::putDocument(Call& call) {
  Path const& path = call.document.value();
  std::string const text = toText(path);
  Operation const operation{path, bodyOf(call.request, text, limits_)};
  bool const changes = applyOne(service_, operation, call.timeToLive());
  Revision const revision = revisionAt(service_.latest().documents, path);
  HttpResponse response = revisionResponse(revision != 0 ? revision : service_.latest().revision);
  // What says what is kept already, as a heartbeat does, waits for nothing that others wrote.
  if (!changes && revision == revisionAt(service_.kept().documents, path))
    call.answer(std::move(response));
  else
    replyWhenKept(call.answer, std::move(response));
}

void TreeApi::deleteDocument(Call& call) {
  bool const existed = revisionAt(service_.latest().documents, call.document.value()) != 0;
  applyOne(service_, Operation{call.document.value(), std::nullopt}, std::nullopt);
  Revision const revision = service_.latest().revision;
  Json const body{{"revision", revision}, {"existed", existed}};
  replyWhenKept(call.answer, jsonResponse(200, revision, body.dump() + "\n"));
}

void TreeApi::health(Call& call) { tellHealth(call, 200); }

void TreeApi::readiness(Call& call) { tellHealth(call, service_.storeProblem() ? 503 : 200); }

void TreeApi::tellHealth(Call& call, int status) {
  auto const& problem = service_.storeProblem();
  Json body{{"status", problem ? "no writes" : "ok"},
            {"revision", service_.watches().revision()},
            {"history", service_.watches().history()},
            {"documents", service_.kept().documents.size()},
            {"switches", service_.switches()},
            {"watches", service_.watches().watches()}};
  if (problem) body["reason"] = *problem;
  if (!warning_.empty()) body["warning"] = warning_;
  call.answer(jsonResponse(status, service_.watches().revision(), body.dump() + "\n"));
}

void TreeApi::replyWhenKept(HttpAnswer answer, HttpResponse response) {
  auto const waiting = std::make_shared<HttpResponse>(std::move(response));
  service_.whenKept([answer = std::move(answer), waiting](StoreError const* problem) {
    answer(problem != nullptr ? problemResponse(storeProblem(*problem)) : std::move(*waiting));
  });
}

// What could not be kept is gone, and is judged again as it is now.
void TreeApi::judgeWhenKept(Call& call, HttpResponse response) {
  auto const waiting = std::make_shared<HttpResponse>(std::move(response));
  service_.whenKept([this, call = call.shared_from_this(), waiting](StoreError const* problem) {
    if (problem != nullptr)
      handle(std::move(call->request), call->answer);
    else
      call->answer(std::move(*waiting));
  });
}

}  // namespace Agent
