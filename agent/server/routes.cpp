// The table of routes, and what requests for anything else are told.
#include <algorithm>
#include <vector>

#include "agent/server/api_call.h"

namespace Agent {
namespace {

constexpr std::string_view kAnyPath = "<path>";
constexpr std::string_view kAnySwitch = "<switch>";
/// A request with a longer body is not urgent, in bytes.
constexpr std::size_t kLongBody = std::size_t{64} * 1024;

bool isOfDocument(std::string_view resource) { return resource.ends_with(kAnyPath); }

/// What all paths of the resource begin with.
std::string_view stemOf(std::string_view resource) { return resource.substr(0, resource.find('<')); }

bool isAt(std::string_view resource, std::string_view path) {
  if (isOfDocument(resource)) return path.starts_with(stemOf(resource));
  if (!resource.ends_with(kAnySwitch)) return path == resource;
  return path.starts_with(stemOf(resource)) && path.size() > stemOf(resource).size();
}

bool takes(TreeApi::Route const& route, std::string_view method) {
  return method == route.method || (route.method == "GET" && method == "HEAD");
}

/// Whether a query that is written "name=VALUE&other=VALUE" has a parameter of that name.
bool hasParameter(std::string_view query, std::string_view name) {
  while (!query.empty()) {
    if (query.substr(0, query.find('=')) == name) return true;
    query.remove_prefix(std::min(query.find('&'), query.size() - 1) + 1);
  }
  return false;
}

/// Whether the request is for one of those routes, as far as is seen without a closer look.
template <class IsOne>
bool isFor(HttpRequest const& request, IsOne const& isOne) {
  auto const path = std::string_view(request.target).substr(0, request.target.find('?'));
  return std::ranges::any_of(TreeApi::routes(), [&](TreeApi::Route const& route) {
    return isOne(route) && isAt(route.resource, path) && takes(route, request.method);
  });
}

[[noreturn]] void refuseResource() {
  std::vector<std::string_view> resources;
  for (TreeApi::Route const& route : TreeApi::routes()) {
    bool const isKnown = !resources.empty() && resources.back() == route.resource;
    if (!isKnown && !isOfDocument(route.resource)) resources.push_back(route.resource);
  }
  std::string list;
  for (std::string_view const& resource : resources) {
    bool const isLast = &resource == &resources.back();
    list.append(list.empty() ? "" : isLast ? " and " : ", ").append(resource);
  }
  throw HttpProblem(404, "no such resource; there are " + list);
}

}  // namespace

std::span<TreeApi::Route const> TreeApi::routes() {
  constexpr unsigned kConditional = Route::kConditional;
  constexpr unsigned kRepeatable = Route::kRepeatable;
  constexpr unsigned kReadAsItComes = Route::kReadAsItComes;
  static constexpr Route kRoutes[] = {
      {"GET", "/v1/tree/<path>", "", kConditional | kRepeatable, Urgency::kOperator, &TreeApi::getDocument},
      {"PUT", "/v1/tree/<path>", "ttl=SECONDS", kConditional | kRepeatable, Urgency::kOperator, &TreeApi::putDocument},
      {"DELETE", "/v1/tree/<path>", "", kConditional | kRepeatable, Urgency::kOperator, &TreeApi::deleteDocument},
      {"GET", "/v1/tree", "prefix=P", kConditional | kRepeatable, Urgency::kBulk, &TreeApi::listDocuments},
      {"POST", "/v1/tree", "atomic=1&ttl=SECONDS", kConditional | kReadAsItComes, Urgency::kBulk, &TreeApi::postBatch},
      {"GET",
       "/v1/switches",
       "ready=1&reason=CODE&service=S&name=GLOB&systemId=ID&limit=COUNT&after=NAME",
       kRepeatable,
       Urgency::kOperator,
       &TreeApi::listSwitches},
      {"GET", "/v1/switches/<switch>", "", kRepeatable | Route::kBetweenTurns, Urgency::kOperator, &TreeApi::getSwitch},
      {"GET", "/v1/watch", "prefix=P&after=ID", kRepeatable, Urgency::kOperator, &TreeApi::watch},
      {"GET", "/v1/backup", "", kConditional | kRepeatable, Urgency::kBulk, &TreeApi::backup},
      {"GET", "/healthz", "", kRepeatable, Urgency::kHealth, &TreeApi::health},
      {"GET", "/readyz", "", kRepeatable, Urgency::kHealth, &TreeApi::readiness},
  };
  return kRoutes;
}

bool TreeApi::isVital(HttpRequest const& request) {
  return isFor(request, [](Route const& route) { return route.urgency == Urgency::kHealth; });
}

bool TreeApi::isReadAsItComes(HttpRequest const& request) {
  return isFor(request, [](Route const& route) { return (route.traits & Route::kReadAsItComes) != 0; });
}

TreeApi::Route const& TreeApi::Call::findRoute() {
  std::string allowed;
  for (Route const& route : routes()) {
    if (!isAt(route.resource, target.path)) continue;
    if (isOfDocument(route.resource) && !document) document = pathOf(target.path.substr(stemOf(route.resource).size()));
    rest = target.path.substr(stemOf(route.resource).size());
    if (takes(route, request.method)) return route;
    allowed.append(allowed.empty() ? "" : ", ").append(route.method == "GET" ? "GET, HEAD" : route.method);
  }
  if (allowed.empty()) refuseResource();
  HttpProblem problem(405, "expected one of " + allowed + ", found " + inQuotes(request.method));
  problem.allow = allowed;
  throw problem;
}

Urgency TreeApi::Call::urgency(Route const& route) const {
  if (request.body.size() > kLongBody || request.isPipelined) return Urgency::kBulk;
  if (!document) return route.urgency;
  switch (document->place.source()) {
    case Source::kHeartbeats:
      return Urgency::kHeartbeat;
    case Source::kSwitch:
    case Source::kMounts:
      return Urgency::kSwitch;
    case Source::kOperator:
    case Source::kRegistry:
      break;
  }
  return route.urgency;
}

void TreeApi::Call::requireParameters(Route const& route) const {
  for (auto const& [name, value] : target.query) {
    // Of single documents, only a heartbeat has a time to live.
    bool const isOfOther = name == "ttl" && document && !document->place.expires();
    if (isOfOther || !hasParameter(route.query, name))
      throw HttpProblem(400, "the parameter " + inQuotes(name) + " means nothing here");
  }
}

}  // namespace Agent
