// Routes: the document at a path, and what the program says of itself.
#include "agent/server/tree_api.h"

#include "agent/server/api_call.h"

namespace Agent {

HttpResponse TreeApi::problem(int status, std::string const& reason) {
  return problemResponse(HttpProblem(status, InputError("", reason)));
}

void TreeApi::handle(HttpRequest request, HttpAnswer answer) {
  Call call{std::move(request), std::move(answer), {}};
  try {
    if (isStopping_) throw HttpProblem(503, InputError("", "the agent stops"));
    // Any web page that a browser shows may send requests here, and the browser says so.
    bool const isRead = call.isMethod("GET") || call.isMethod("HEAD");
    if (!isRead && findField(call.request.fields, "Origin"))
      throw HttpProblem(403, InputError("", "web pages may not write here"));
    call.target = parseTarget(call.request.target);
    route(call);
  } catch (HttpProblem const& problem) {
    refuse(call, problem);
  } catch (InputError const& error) {
    refuse(call, HttpProblem(400, error));
  } catch (StoreError const& error) {
    refuse(call, storeProblem(error));
  }
}

// What is there, or is not, is told like any other answer: not before it is kept.
void TreeApi::refuse(Call& call, HttpProblem const& problem) {
  HttpResponse response = problemResponse(problem);
  response.fields.emplace_back("Enrolix-Revision", std::to_string(service_.watches().revision()));
  bool const isOfState = problem.status() == 404 || problem.status() == 412;
  if (isOfState)
    readWhenKept(call, std::move(response));
  else if (problem.status() == 500)
    replyWhenKept(call.answer, std::move(response));
  else
    call.answer(std::move(response));
}

void TreeApi::route(Call& call) {
  constexpr std::string_view kTree = "/v1/tree/";
  std::string const& path = call.target.path;
  if (path == "/v1/tree") return tree(call);
  if (path.starts_with(kTree)) return document(call, path.substr(kTree.size()));
  if (path == "/v1/watch") return watch(call);
  if (path == "/v1/backup") return backup(call);
  if (path == "/healthz") return health(call, false);
  if (path == "/readyz") return health(call, true);
  throw HttpProblem(
      404, InputError("", "no such resource; there are /v1/tree, /v1/watch, /v1/backup, /healthz and /readyz"));
}

void TreeApi::document(Call& call, std::string const& pathText) {
  Path const path = pathOf(pathText);
  std::string const text = toText(path);
  call.requireMethod({"GET", "PUT", "DELETE"});
  call.requireParameters(call.isMethod("PUT") && std::holds_alternative<At::Heartbeat>(path)
                             ? std::initializer_list<std::string_view>{"ttl"}
                             : std::initializer_list<std::string_view>{});
  call.requireRevision(revisionAt(service_.documents(), path), text);
  if (call.isMethod("PUT")) return putDocument(call, path);
  if (call.isMethod("DELETE")) return deleteDocument(call, path);
  getDocument(call, text);
}

void TreeApi::getDocument(Call& call, std::string const& path) {
  auto const found = service_.documents().find(path);
  if (found == service_.documents().end()) {
    InputError error("", "there is no document here");
    error.pathIs(path);
    throw HttpProblem(404, error);
  }
  HttpResponse response = jsonResponse(200, found->second.revision, *found->second.text + "\n");
  response.fields.emplace_back("ETag", '"' + std::to_string(found->second.revision) + '"');
  readWhenKept(call, std::move(response));
}

void TreeApi::putDocument(Call& call, Path const& path) {
  std::string const text = toText(path);
  Operation const operation{path, bodyOf(call.request, text)};
  applyOne(service_, operation, call.timeToLive());
  auto const found = service_.documents().find(text);
  Revision const revision = found != service_.documents().end() ? found->second.revision : service_.revision();
  replyWhenKept(call.answer, revisionResponse(revision));
}

void TreeApi::deleteDocument(Call& call, Path const& path) {
  applyOne(service_, Operation{path, std::nullopt}, std::nullopt);
  replyWhenKept(call.answer, revisionResponse(service_.revision()));
}

void TreeApi::health(Call& call, bool isReadiness) {
  call.requireMethod({"GET"});
  call.requireParameters({});
  auto const& problem = service_.storeProblem();
  Json body{{"status", problem ? "no writes" : "ok"},
            {"revision", service_.watches().revision()},
            {"history", service_.watches().history()},
            {"documents", service_.documents().size()},
            {"switches", service_.switches()},
            {"watches", service_.watches().watches()}};
  if (problem) body["reason"] = *problem;
  call.answer(jsonResponse(isReadiness && problem ? 503 : 200, service_.watches().revision(), body.dump() + "\n"));
}

void TreeApi::replyWhenKept(HttpAnswer answer, HttpResponse response) {
  auto const waiting = std::make_shared<HttpResponse>(std::move(response));
  service_.whenKept([answer = std::move(answer), waiting](StoreError const* problem) {
    answer(problem != nullptr ? problemResponse(storeProblem(*problem)) : std::move(*waiting));
  });
}

// What could not be kept is gone, and is read again as it is now.
void TreeApi::readWhenKept(Call& call, HttpResponse response) {
  auto const waiting = std::make_shared<HttpResponse>(std::move(response));
  service_.whenKept([this, call, waiting](StoreError const* problem) {
    if (problem != nullptr)
      handle(call.request, call.answer);
    else
      call.answer(std::move(*waiting));
  });
}

}  // namespace Agent
