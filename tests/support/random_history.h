// Random operations on the state tree.
#pragma once

#include <random>
#include <string>
#include <vector>

namespace Agent {

/// Operations of a small network, in any order: ids are shared, changed and taken over, services come and go.
class RandomHistory {
 public:
  explicit RandomHistory(unsigned seed) : random_(seed) {}

  /// The next line of the scenario.
  std::string next() {
    std::string const name(1, static_cast<char>('a' + pick(4)));
    std::string const id = "02:00:00:aa:00:0" + std::to_string(pick(4));
    std::string const service = pick(2) ? "routing" : "mirror";
    auto const flag = [&] { return pick(4) ? "true" : "false"; };
    switch (pick(12)) {
      case 0:
        return put("controller/config", std::string(R"({"enabled": )") + flag() + "}");
      case 1:
        return put("controller/status", R"({"controllerUUID": "u)" + std::to_string(pick(3)) + "\"}");
      case 2:
      case 3:
        return put("registration/" + name + "/config",
                   R"({"systemId": ")" + id + R"(", "enabled": )" + flag() + R"(, "registrationGenId": )" +
                       std::to_string(pick(9)) + R"(, "serviceConfig": {")" + service + R"(": )" + config() + "}}");
      case 4:
      case 5:
        return put("registration/" + name + "/status", "{}");
      case 6:
        return pick(2) ? put("registration/" + name + "/note", "[]") : drop("registration/" + name + "/note");
      case 7:
        return put("heartbeat/" + id, pick(2) ? "{}" : "1");
      case 8:
        return put("service/" + std::string(pick(2) ? "config/" : "override/") + service, config());
      case 9:
        return put("mount/offer/" + id,
                   R"({"publishedMount": {"/m": {"remotePath": "/r", "service": ")" + service + "\"}}}");
      case 10:
        return put("mount/ready/" + service, flag());
      default: {
        std::vector<std::string> const paths{"registration/" + name,
                                             "registration/" + name + "/config",
                                             "heartbeat/" + id,
                                             "service/config/" + service,
                                             "mount/offer/" + id,
                                             "mount/ready/" + service};
        return drop(paths[pick(static_cast<unsigned>(paths.size()))]);
      }
    }
  }

 private:
  static std::string put(std::string const& path, std::string const& document) {
    return R"({"put": ")" + path + R"(", "value": )" + document + "}";
  }
  static std::string drop(std::string const& path) { return R"({"delete": ")" + path + "\"}"; }
  std::string config() {
    return std::string(R"({"enabled": )") + (pick(4) ? "true" : "false") + R"(, "versionConfig": {"version": {")" +
           std::to_string(pick(3)) + R"(": "x"}}})";
  }
  unsigned pick(unsigned n) { return static_cast<unsigned>(random_()) % n; }

  std::mt19937 random_;
};

}  // namespace Agent
