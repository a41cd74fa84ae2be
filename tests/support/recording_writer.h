// A client that writes under load, and remembers what it was answered.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/served.h"

namespace Test {

/// Writes to paths of its own, so that it knows what each must hold: what the last answered write left there, or what
/// one that was sent later, and not answered, would have.
class RecordingWriter {
 public:
  explicit RecordingWriter(unsigned number)
      : random_(number), name_("w" + std::to_string(number)), id_("02:00:00:00:0" + std::to_string(number) + ":0") {}

  /// Writes until the connection breaks, or the agent says that it stops.
  void run(std::string const& url) {
    try {
      Api api(url);
      while (write(api)) continue;
    } catch (Agent::HttpError const&) {
      // It was killed.
    }
  }

  /// What the agent holds, after any end.
  void check(std::map<std::string, std::string> const& documents) {
    for (auto& [path, values] : possible_) {
      auto const found = documents.find(path);
      Value const actual = found != documents.end() ? Value(found->second) : std::nullopt;
      EXPECT_NE(std::find(values.begin(), values.end(), actual), values.end())
          << path << " is " << actual.value_or("nothing") << ", the last answered write left "
          << values.front().value_or("nothing");
      values = {actual};
    }
    // What was written in one turn is there as one.
    EXPECT_EQ(possibleAt(left()), possibleAt(right()));
  }

  std::size_t answers() const { return answers_; }
  Agent::Revision answeredRevision() const { return answeredRevision_; }

 private:
  /// The text of a document; nothing if there is none.
  using Value = std::optional<std::string>;
  struct Write {
    std::string method;
    std::string target;
    std::string body;
    /// In order.
    std::vector<std::pair<std::string, Value>> effects;
  };

  std::string left() const { return "registration/" + name_ + "/left"; }
  std::string right() const { return "registration/" + name_ + "/right"; }
  unsigned pick(unsigned n) { return static_cast<unsigned>(random_()) % n; }

  bool write(Api& api) {
    Write const write = next();
    for (auto const& [path, value] : write.effects) possibleAt(path).push_back(value);
    Agent::HttpResponse const response = api.send(write.method, write.target, write.body);
    if (response.status == 503 && response.body.find("stop") != std::string::npos) return false;
    EXPECT_EQ(response.status, 200) << write.method << " " << write.target << " " << write.body << response.body;
    if (response.status != 200) return false;
    ++answers_;
    answeredRevision_ = std::max(answeredRevision_, revisionOf(response));
    for (auto const& [path, value] : write.effects) possible_[path] = {value};
    return true;
  }

  std::vector<Value>& possibleAt(std::string const& path) {
    auto& values = possible_[path];
    if (values.empty()) values.emplace_back();
    return values;
  }

  Write next() {
    switch (pick(8)) {
      case 0:
        return batch(2 + pick(5));
      case 1: {
        std::string const value = "[" + std::to_string(++count_) + "]";
        return {"POST",
                "/v1/tree?atomic=1",
                putLine(left(), value) + putLine(right(), value),
                {{left(), value}, {right(), value}}};
      }
      default:
        return one();
    }
  }

  Write batch(unsigned size) {
    Write all{"POST", "/v1/tree?ttl=0", "", {}};
    for (unsigned n = 0; n < size; ++n) {
      Write const write = one();
      std::string const path = write.target.substr(9, write.target.find('?') - 9);
      all.body += write.method == "PUT" ? putLine(path, write.body) : R"({"delete": ")" + path + "\"}\n";
      all.effects.insert(all.effects.end(), write.effects.begin(), write.effects.end());
    }
    return all;
  }

  Write one() {
    std::string const digit = std::to_string(pick(4));
    std::string const number = std::to_string(++count_);
    std::string const folder = "registration/" + name_ + "-" + digit;
    switch (pick(8)) {
      case 0:
        return put("mount/ready/" + name_ + digit, pick(2) != 0 ? "true" : "false");
      case 1:
        return {
            "DELETE", "/v1/tree/" + folder, "", {{folder + "/config", std::nullopt}, {folder + "/note", std::nullopt}}};
      case 2:
        return {"DELETE", "/v1/tree/heartbeat/" + id_ + digit, "", {{"heartbeat/" + id_ + digit, std::nullopt}}};
      case 3:
        return put("heartbeat/" + id_ + digit, "{\"n\":" + number + "}", "?ttl=0");
      case 4:
        return put(folder + "/note", "[\"" + std::string(pick(3000), 'x') + "\"," + number + "]");
      case 5:
        return {"PUT", "/v1/tree/" + folder + "/status", "{}", {}};
      default:
        return put(folder + "/config",
                   R"({"systemId":")" + id_ + digit +
                       R"(","serviceConfig":{"routing":{"enabled":true,"versionConfig":{"version":{"1":"one"}}}},)"
                       R"("enabled":true,"registrationGenId":)" +
                       number + "}");
    }
  }

  static Write put(std::string const& path, std::string const& value, std::string const& query = "") {
    return {"PUT", "/v1/tree/" + path + query, value, {{path, value}}};
  }
  static std::string putLine(std::string const& path, std::string const& value) {
    return R"({"put": ")" + path + R"(", "value": )" + value + "}\n";
  }

  std::mt19937 random_;
  std::string name_;
  std::string id_;
  unsigned count_ = 0;
  /// Of each path, what the last answered write left there and then what others would.
  std::map<std::string, std::vector<Value>> possible_;
  std::size_t answers_ = 0;
  Agent::Revision answeredRevision_ = 0;
};

}  // namespace Test
