// The table of routes, against the documents and against what the routes do.
#include <gmock/gmock.h>

#include <array>

#include "agent/server/tree_api.h"
#include "support/documents.h"
#include "support/service_world.h"

namespace Agent::RoutesTest {
namespace {

using testing::ElementsAreArray;
using testing::HasSubstr;
using Route = TreeApi::Route;

std::string urgencyName(Urgency urgency) {
  return std::array{"health", "heartbeats", "switches", "operators", "bulk"}.at(static_cast<std::size_t>(urgency));
}

/// A request for each route, which it takes.
class Routes : public testing::Test {
 protected:
  static HttpRequest requestFor(Route const& route) {
    HttpRequest request;
    request.method = route.method;
    request.target = route.resource;
    if (std::size_t const at = request.target.find('<'); at != std::string::npos)
      request.target.replace(at, std::string::npos, "mount/ready/x");
    if (request.method == "PUT") request.body = "true";
    if (request.method == "POST")
      request.body = "{\"put\": \"mount/ready/y\", \"value\": true}\n{\"delete\": \"mount/ready/y\"}\n";
    return request;
  }

  HttpResponse send(HttpRequest const& request) {
    HttpResponse result;
    result.status = 0;
    api.handle(request, [&](HttpResponse response) { result = std::move(response); });
    world.loop.run();
    return result;
  }

  ServiceWorld world;
  TreeApi api{world.loop, *world.service, {}};
};

TEST_F(Routes, AreThoseOfTheDocuments) {
  std::vector<TableRow> expected;
  for (Route const& route : TreeApi::routes()) {
    std::string request = "`" + std::string(route.method) + " " + std::string(route.resource);
    if (!route.query.empty()) request += "?" + std::string(route.query);
    expected.push_back({request + "`",
                        (route.traits & Route::kConditional) != 0 ? "yes" : "",
                        (route.traits & Route::kRepeatable) != 0 ? "yes" : "",
                        urgencyName(route.urgency)});
  }
  std::vector<TableRow> documented = tableRows(documentNamed("docs/serving.md"), "## Routes");
  for (TableRow& row : documented) {
    ASSERT_EQ(row.size(), 5u) << row[0];
    EXPECT_NE(row[4], "") << row[0];
    row.pop_back();
  }
  EXPECT_THAT(documented, ElementsAreArray(expected));
}

TEST_F(Routes, TakeTheirMethodAndTheParametersOfTheTableAlone) {
  for (Route const& route : TreeApi::routes()) {
    HttpRequest request = requestFor(route);
    std::string const target = request.target;
    EXPECT_EQ(send(request).status, route.method == "GET" && route.resource.ends_with(">") ? 404 : 200) << target;
    request.target = target + "?other=1";
    HttpResponse const refused = send(request);
    EXPECT_EQ(refused.status, 400) << target;
    EXPECT_THAT(refused.body, HasSubstr("the parameter \\\"other\\\" means nothing here"));
    request.target = target;
    request.method = "PATCH";
    EXPECT_THAT(std::string(findField(send(request).fields, "Allow").value_or("")), HasSubstr(route.method)) << target;
    world.service->apply(std::vector{Operation{parsePath("mount/ready/x"), std::nullopt}});
  }
}

TEST_F(Routes, HeedAConditionAsTheTableSays) {
  for (Route const& route : TreeApi::routes()) {
    HttpRequest request = requestFor(route);
    request.fields = {{"If-Match", "999"}};
    EXPECT_EQ(send(request).status == 412, (route.traits & Route::kConditional) != 0) << route.method << request.target;
  }
}

TEST_F(Routes, MayBeRepeatedAsTheTableSays) {
  for (Route const& route : TreeApi::routes()) {
    send(requestFor(route));
    Revision const revision = world.service->kept().revision;
    std::string const text = world.text();
    send(requestFor(route));
    EXPECT_EQ(world.service->kept().revision == revision, (route.traits & Route::kRepeatable) != 0) << route.resource;
    EXPECT_EQ(world.text(), text) << route.resource;
  }
}

TEST_F(Routes, AreNamedToARequestForAnythingElse) {
  std::string const body = send({"GET", "/v1/nothing", {}, ""}).body;
  for (Route const& route : TreeApi::routes()) {
    if (route.resource.ends_with(">")) continue;
    EXPECT_THAT(body, HasSubstr(" " + std::string(route.resource)));
  }
  EXPECT_THAT(body, HasSubstr("there are /v1/tree, "));
  EXPECT_THAT(body, HasSubstr(" and /readyz\""));
}

}  // namespace
}  // namespace Agent::RoutesTest
