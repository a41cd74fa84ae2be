// Loads `enrolix serve` with networks of switches, over the network and with its state on disk, and prints what it
// bore.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "agent/document/json_reader.h"
#include "agent/net/http_client.h"
#include "agent/net/server_event_reader.h"
#include "bench/serve_network.h"
#include "bench/server_process.h"
#include "bench/service_figures.h"

namespace ServeLoad {
namespace {

using Agent::HttpClient;
using Agent::HttpResponse;
using Agent::Json;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

std::string const kTree = "/v1/tree";
constexpr std::size_t kConnections = 16;
constexpr std::size_t kSwitchesInBatch = 50;
constexpr Seconds kHeartbeatInterval{10};
/// Of every heartbeat: long enough for the first to live until the last switch has enrolled.
constexpr char kTimeToLive[] = "?ttl=60";

void put(HttpClient& client, std::string const& path, std::string document) {
  ask(client, "PUT", kTree + "/" + path, std::move(document));
}

/// Calls `work(client, i)` for every i below `count`, in some order, from as many connections; returns how many a
/// second were done.
double perSecond(ServerProcess const& server, std::size_t connections, std::size_t count,
                 std::function<void(HttpClient& client, std::size_t i)> const& work) {
  std::atomic<std::size_t> next{0};
  std::vector<std::future<void>> workers;
  auto const begin = Clock::now();
  for (std::size_t c = 0; c < connections; ++c) {
    workers.push_back(std::async(std::launch::async, [&] {
      HttpClient client(server.url());
      for (std::size_t i = next++; i < count; i = next++) work(client, i);
    }));
  }
  for (auto& worker : workers) worker.get();
  return static_cast<double>(count) / Seconds(Clock::now() - begin).count();
}

/// Gives a sign of life for every switch in each interval, some every tenth of a second, until its end.
class Heartbeats {
 public:
  Heartbeats(ServerProcess const& server, std::size_t switches)
      : done_(std::async(std::launch::async, [this, &server, switches] { give(server, switches); })) {}
  ~Heartbeats() { isOver_ = true; }
  Heartbeats(Heartbeats const&) = delete;
  Heartbeats& operator=(Heartbeats const&) = delete;

  /// Throws what went wrong.
  void finish() {
    isOver_ = true;
    done_.get();
  }

 private:
  void give(ServerProcess const& server, std::size_t switches) {
    constexpr auto kStep = std::chrono::milliseconds(100);
    auto const inStep = static_cast<std::size_t>(static_cast<double>(switches) * (kStep / kHeartbeatInterval));
    HttpClient client(server.url());
    auto next = Clock::now();
    for (std::size_t i = 0; !isOver_; next += kStep) {
      std::string lines;
      for (std::size_t end = i + inStep; i < end; ++i) lines += putLine(heartbeatPath(i % switches), kEmpty);
      ask(client, "POST", kTree + kTimeToLive, std::move(lines));
      std::this_thread::sleep_until(next + kStep);
    }
  }

  std::atomic<bool> isOver_{false};
  std::future<void> done_;
};

/// Sees when the switches' statuses get to a generation.
class AnswerWatch {
 public:
  AnswerWatch(ServerProcess& server, std::size_t switches, unsigned generation, std::size_t answers)
      : server_(server), seen_(switches), generation_(generation), missing_(answers) {
    done_ = std::async(std::launch::async, [this] { follow(); });
    while (!hasBegun_ && done_.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) continue;
  }
  /// A watch to which nothing more is sent ends with its server.
  ~AnswerWatch() {
    if (done_.valid() && done_.wait_for(Seconds(0)) != std::future_status::ready) server_.kill();
  }
  AnswerWatch(AnswerWatch const&) = delete;
  AnswerWatch& operator=(AnswerWatch const&) = delete;

  /// Waits for the last answer; when each switch's was seen.
  std::vector<Clock::time_point> const& finish() {
    if (done_.wait_for(Seconds(20)) != std::future_status::ready) throw std::runtime_error("an answer does not come");
    done_.get();
    return seen_;
  }

 private:
  void follow() {
    HttpClient client(server_.url());
    Agent::ServerEventReader events;
    auto const begin = [this](HttpResponse const& head) { return hasBegun_ = head.status == 200; };
    client.stream({"GET", "/v1/watch?prefix=registration/", {}, {}}, begin, [&](std::string_view piece) {
      return events.feed(piece, [this](Agent::ServerEvent const& event) { return take(event); });
    });
    if (missing_ > 0) throw std::runtime_error("the watch ended");
  }

  bool take(Agent::ServerEvent const& event) {
    constexpr std::string_view kPrefix = "registration/";
    constexpr std::string_view kEntry = "/status";
    if (event.name != "change") return true;
    auto const now = Clock::now();
    Json const change = Json::parse(event.data);
    std::string const path = change["path"];
    if (!path.ends_with(kEntry) || change["value"]["registrationGenId"] != generation_) return true;
    auto& seen = seen_[switchIndex(path.substr(kPrefix.size(), path.size() - kPrefix.size() - kEntry.size()))];
    if (seen != Clock::time_point()) return true;
    seen = now;
    return --missing_ > 0;
  }

  ServerProcess& server_;
  std::vector<Clock::time_point> seen_;
  unsigned generation_;
  std::size_t missing_;
  std::atomic<bool> hasBegun_{false};
  std::future<void> done_;
};

/// What no server can do without that keeps what it answers: some bytes behind the others of a file, on the disk.
double syncTime(Folder const& folder) {
  std::string const block(4096, 'x');
  int const file = open((folder.path() + "/sync").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  std::vector<double> times;
  for (int i = 0; i < 200; ++i) {
    auto const begin = Clock::now();
    if (write(file, block.data(), block.size()) < 0 || fdatasync(file) != 0) break;
    times.push_back(milliseconds(Clock::now() - begin));
  }
  close(file);
  if (times.empty()) throw std::runtime_error("cannot write to " + folder.path());
  return percentile(times, 0.5);
}

class Measurement {
 public:
  Measurement(std::filesystem::path const& place, std::size_t switches) : place_(place), switches_(switches) {}

  std::vector<Row> run() {
    enrolInBatches();
    Folder const folder(place_);
    ServerProcess server(folder.path());
    enrolOneByOne(server);
    beat(server);
    renew(server);
    turns(server);
    restart(server, folder);
    return std::move(rows_);
  }

 private:
  void row(std::string const& work, double figure) { rows_.push_back({work, switches_, figure}); }

  void enrolInBatches() {
    Folder const folder(place_);
    ServerProcess const server(folder.path());
    prepare(server);
    double const rate = perSecond(server, 4, switches_ / kSwitchesInBatch, [](HttpClient& client, std::size_t batch) {
      std::string lines;
      for (std::size_t i = 0; i < kSwitchesInBatch; ++i) lines += enrolmentLines(batch * kSwitchesInBatch + i);
      ask(client, "POST", kTree + kTimeToLive, std::move(lines));
    });
    row("enrol, in batches of 50, switches/s", rate * kSwitchesInBatch);
    requireReadiness(server);
  }

  void enrolOneByOne(ServerProcess const& server) {
    prepare(server);
    std::size_t const before = server.residentBytes();
    double const rate = perSecond(server, kConnections, switches_, [](HttpClient& client, std::size_t i) {
      put(client, configPath(i), config(1, i));
      put(client, statusPath(i), kEmpty);
      put(client, offerPath(i), offer());
      put(client, heartbeatPath(i) + kTimeToLive, kEmpty);
    });
    row("enrol, each with 4 puts, switches/s", rate);
    row("memory, bytes/switch",
        (static_cast<double>(server.residentBytes()) - static_cast<double>(before)) / static_cast<double>(switches_));
    requireReadiness(server);
  }

  /// One interval of nothing but signs of life.
  void beat(ServerProcess const& server) {
    Heartbeats heartbeats(server, switches_);
    auto const begin = Clock::now();
    Seconds const before = server.processorTime();
    std::this_thread::sleep_for(kHeartbeatInterval);
    Seconds const used = server.processorTime() - before;
    row("heartbeats alone, % of a core", 100 * used / Seconds(Clock::now() - begin));
    heartbeats.finish();
  }

  /// A hundred new generations a second, each of another switch, with all signs of life meanwhile.
  void renew(ServerProcess& server) {
    constexpr std::size_t kRenewals = 1'000;
    constexpr unsigned kGeneration = 2;
    Heartbeats heartbeats(server, switches_);
    AnswerWatch watch(server, switches_, kGeneration, kRenewals);
    std::vector<Clock::time_point> written(switches_);
    std::size_t const stride = switches_ / kRenewals;
    auto const begin = Clock::now();
    perSecond(server, 4, kRenewals, [&](HttpClient& client, std::size_t i) {
      std::size_t const of = i * stride;
      std::string const document = config(kGeneration, of);
      std::this_thread::sleep_until(begin + i * std::chrono::milliseconds(10));
      written[of] = Clock::now();
      put(client, configPath(of), document);
    });
    std::vector<Clock::time_point> const& seen = watch.finish();
    heartbeats.finish();
    std::vector<double> times;
    for (std::size_t i = 0; i < kRenewals; ++i) times.push_back(milliseconds(seen[i * stride] - written[i * stride]));
    row("from write to answer seen, median, ms", percentile(times, 0.5));
    row("from write to answer seen, 99th percentile, ms", percentile(times, 0.99));
  }

  /// Writes that each change a document, and mean nothing to the registry.
  void turns(ServerProcess const& server) {
    auto const note = [this](HttpClient& client, std::size_t i) {
      put(client, notePath(i % switches_), std::to_string(i));
    };
    row("turns kept, 1 connection, turns/s", perSecond(server, 1, 1'000, note));
    row("turns kept, 16 connections, turns/s", perSecond(server, kConnections, 10'000, note));
    constexpr std::size_t kInBatch = 500;
    double const rate = perSecond(server, 4, 100, [this](HttpClient& client, std::size_t batch) {
      std::string lines;
      for (std::size_t i = 0; i < kInBatch; ++i)
        lines +=
            putLine(notePath((batch * kInBatch + i) % switches_), "\"" + std::to_string(batch * kInBatch + i) + "\"");
      ask(client, "POST", kTree, std::move(lines));
    });
    row("turns kept, in batches of 500, turns/s", rate * kInBatch);
  }

  void restart(ServerProcess& server, Folder const& folder) {
    server.kill();
    auto const begin = Clock::now();
    ServerProcess const again(folder.path());
    HttpClient client(again.url());
    ask(client, "GET", "/readyz");
    row("restart after a crash, ms", milliseconds(Clock::now() - begin));
    requireReadiness(again);
  }

  static void prepare(ServerProcess const& server) {
    HttpClient client(server.url());
    ask(client, "POST", kTree, controllerLines());
  }

  /// Figures of a network that did not come to its end would be worth nothing.
  void requireReadiness(ServerProcess const& server) const {
    HttpClient client(server.url());
    Json const rows = Json::parse(ask(client, "GET", kTree + "?prefix=controller/switch/").body);
    auto const isReady = [](Json const& document) { return !document["switchStatus"].is_null(); };
    auto const ready = static_cast<std::size_t>(std::count_if(rows.begin(), rows.end(), isReady));
    if (ready != switches_)
      throw std::runtime_error(std::to_string(ready) + " of " + std::to_string(switches_) + " switches are ready");
  }

  std::filesystem::path place_;
  std::size_t switches_;
  std::vector<Row> rows_;
};

int run(std::filesystem::path const& place, bool isMarkdown) {
  std::vector<Row> rows;
  rows.push_back({"floor: 4 KiB behind a file, on the disk, ms", 1, syncTime(Folder(place))});
  for (std::size_t const switches : {std::size_t{1'000}, std::size_t{10'000}}) {
    for (Row& row : Measurement(place, switches).run()) rows.push_back(std::move(row));
  }
  std::cout << (isMarkdown ? "\n### service\n\n" : "\n==> service\n");
  print(rows, isMarkdown);
  return 0;
}

}  // namespace
}  // namespace ServeLoad

int main(int argc, char** argv) {
  std::vector<std::string> const arguments(argv + 1, argv + argc);
  bool const isMarkdown = !arguments.empty() && arguments.back() == "--markdown";
  if (arguments.size() != (isMarkdown ? 2u : 1u)) {
    std::cerr
        << "usage: enrolix_serve_load FOLDER [--markdown]\nThe state goes below FOLDER, and should be on a disk.\n";
    return 2;
  }
  try {
    return ServeLoad::run(arguments.front(), isMarkdown);
  } catch (std::exception const& error) {
    std::cerr << "enrolix_serve_load: " << error.what() << '\n';
    return 1;
  }
}
