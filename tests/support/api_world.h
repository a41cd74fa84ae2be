// A service that tests ask over its HTTP interface, without HTTP.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/server/tree_api.h"
#include "support/service_world.h"

namespace Agent {

/// A service that is asked over its interface.
class ApiWorld : public ::testing::Test {
 protected:
  explicit ApiWorld(ServiceOptions const& options = {}) : world(options) {}

  struct Reply {
    int status = 0;
    HttpFields fields;
    std::string body;

    std::string field(std::string_view name) const { return std::string(findField(fields, name).value_or("-")); }
    Json json() const { return Json::parse(body); }
  };

  Reply ask(std::string const& method, std::string const& target, std::string body = {}, HttpFields fields = {}) {
    std::optional<Reply> reply;
    api.handle(HttpRequest{method, target, std::move(fields), std::move(body)}, [&](HttpResponse response) {
      reply = Reply{response.status, response.fields, response.body};
      if (response.source == nullptr) return;
      sources.push_back(std::move(response.source));
      for (auto piece = sources.back()->next(); piece && !piece->empty(); piece = sources.back()->next())
        reply->body += *piece;
    });
    world.loop.run();
    EXPECT_TRUE(reply) << method << " " << target;
    return reply.value_or(Reply());
  }
  Reply get(std::string const& target) { return ask("GET", target); }
  Reply put(std::string const& path, std::string const& document) { return ask("PUT", "/v1/tree/" + path, document); }
  Reply post(std::string const& query, std::vector<std::string> const& lines) {
    std::string body;
    for (std::string const& line : lines) body += line + "\n";
    return ask("POST", "/v1/tree" + query, body);
  }

  ServiceWorld world;
  ApiLimits limits{
      .watches = 3, .batch = 50, .atomicBatch = 11, .documentBytes = 1000, .document = {.depth = 5, .values = 20}};
  TreeApi api{world.loop, *world.service, limits};
  std::vector<std::unique_ptr<BodySource>> sources;
};

inline constexpr char kPut[] = R"({"put": "mount/ready/x", "value": true})";
inline constexpr char kDrop[] = R"({"delete": "mount/ready/x"})";
inline constexpr char kBad[] = R"({"put": "mount/ready/x", "value": 7})";

}  // namespace Agent
