#include "tests/attack/trial.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <future>

#include "agent/net/http_client.h"
#include "bench/serve_network.h"
#include "bench/server_process.h"
#include "bench/service_figures.h"
#include "tests/attack/honest.h"

namespace Attack {
namespace {

using ServeLoad::ServerProcess;

constexpr std::size_t kInBatch = 50;
constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;
/// How long a heartbeat may be there beyond its time, in seconds.
constexpr double kLatestDeath = 1;
/// How long the short form takes where heartbeats must die.
constexpr double kUntilDeath = 2;
/// It goes on in steps until its load has arrived.
constexpr double kMoreTime = 0.2;
constexpr int kMore = 150;
constexpr unsigned kSmallSync = 20;

std::string number(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), value < 10 ? "%.1f" : "%.0f", value);
  return text.data();
}

char const* name(Unit unit) {
  constexpr std::array kNames{"requests", "bytes", "connections"};
  return kNames[static_cast<std::size_t>(unit)];
}

ServeLoad::Launch launchOf(Plan const& plan, TrialOptions const& options) {
  ServeLoad::Launch launch{plan.options, {}};
  if (plan.connections > 0)
    launch.options.insert(
        launch.options.end(),
        {"--max-connections", std::to_string(plan.connections + Honest::connections(options.switches))});
  if (plan.syncMilliseconds > 0)
    launch.environment = {
        {"LD_PRELOAD", ENROLIX_SLOW_DISK},
        {"ENROLIX_SYNC_MILLISECONDS", std::to_string(options.isSmall ? kSmallSync : plan.syncMilliseconds)},
        // Of the address sanitizer, which wants to be loaded first.
        {"ASAN_OPTIONS", "verify_asan_link_order=0"}};
  return launch;
}

void enrol(ServerProcess const& server, std::size_t switches) {
  Agent::HttpClient client(server.url());
  ServeLoad::ask(client, "POST", "/v1/tree", ServeLoad::controllerLines());
  for (std::size_t i = 0; i < switches;) {
    std::string lines;
    for (std::size_t const end = std::min(i + kInBatch, switches); i < end; ++i) lines += ServeLoad::enrolmentLines(i);
    ServeLoad::ask(client, "POST", "/v1/tree?ttl=60", lines);
  }
}

/// The clients of an attack, which have ended when it has.
class Clients {
 public:
  Clients(Plan const& plan, Assault& assault) : assault_(assault) {
    for (std::size_t i = 0; i < plan.clients; ++i)
      running_.push_back(std::async(std::launch::async, [&plan, &assault, i] { plan.run(assault, i); }));
  }
  ~Clients() { assault_.isOver = true; }
  Clients(Clients const&) = delete;
  Clients& operator=(Clients const&) = delete;

  /// Throws what went wrong.
  void finish() {
    assault_.isOver = true;
    for (auto& client : running_) client.get();
  }

 private:
  Assault& assault_;
  std::vector<std::future<void>> running_;
};

class Trial {
 public:
  Trial(Plan const& plan, TrialOptions const& options)
      : plan_(plan),
        options_(options),
        folder_(options.folder),
        server_(folder_.path(), launchOf(plan, options)),
        timeToLive_(options.isSmall && plan.isOfHeartbeats ? 1 : plan.timeToLive),
        seconds_(options.isSmall && plan.isOfHeartbeats ? std::max(options.seconds, kUntilDeath) : options.seconds),
        assault_{server_, options.switches, options.isSmall, options.seed, seconds_},
        honest_(server_.port(), options.switches, timeToLive_, options.seed) {}

  Result run() {
    enrol(server_, options_.switches);
    honest_.begin();
    Clients clients(plan_, assault_);
    try {
      honest_.ask(seconds_);
      // How long the least takes depends on the machine.
      for (int more = 0; options_.isSmall && more < kMore && !hasArrived(); ++more) honest_.ask(kMoreTime);
      judgeLoad();
      // While attackers end, what the last honest requests take is none of the server's.
      honest_.finish();
      clients.finish();
    } catch (std::exception const& error) {
      result_.failures.emplace_back(error.what());
    }
    for (std::size_t kind = 0; kind < kKinds; ++kind) judge(static_cast<Kind>(kind));
    judgeHeartbeats();
    judgeServer();
    result_.cells.push_back(number(honest_.ownDelay()));
    return std::move(result_);
  }

 private:
  double least() const {
    if (plan_.least == 0) return 0;
    return options_.isSmall ? 1 : std::max(1.0, plan_.least * seconds_);
  }
  bool hasArrived() { return static_cast<double>(assault_[plan_.unit]) >= least(); }

  void judgeLoad() {
    result_.cells.push_back(std::to_string(assault_[plan_.unit]) + " " + name(plan_.unit) +
                            (assault_.refused > 0 ? ", " + std::to_string(assault_.refused) + " refused" : ""));
    if (!hasArrived())
      result_.failures.push_back("the load did not arrive: less than " + number(least()) + " " + name(plan_.unit));
  }

  // What is stopped answers later, whatever it is asked.
  void judge(Kind kind) {
    auto& [times, refused] = honest_.answers(kind);
    KindRow const& row = kKindRows[static_cast<std::size_t>(kind)];
    std::string cell = std::to_string(times.size()) + ": ";
    bool isMissed = refused > 0;
    if (!times.empty()) {
      for (double const part : {0.5, 0.99, 0.999}) cell += number(ServeLoad::percentile(times, part)) + " / ";
      cell += number(ServeLoad::percentile(times, 1));
      isMissed |= ServeLoad::percentile(times, 0.999) > row.bar;
    }
    if (refused > 0) cell += ", " + std::to_string(refused) + " refused";
    bool const isSpared = std::find(plan_.spared.begin(), plan_.spared.end(), kind) != plan_.spared.end();
    if (isMissed && !isSpared) {
      cell += " **missed**";
      result_.missed.push_back(std::string(row.name) + " " + cell);
    }
    result_.cells.push_back(cell);
  }

  void judgeHeartbeats() {
    if (honest_.lost() > 0)
      result_.failures.push_back(std::to_string(honest_.lost()) +
                                 " heartbeats died that were renewed, or had time left");
    auto const latest = honest_.latestDeath(assault_.stopped);
    bool const isMissed = latest && *latest > kLatestDeath;
    result_.cells.push_back(latest ? number(*latest) + (isMissed ? " **missed**" : "") : "");
    if (isMissed) result_.missed.push_back("a heartbeat outlived its time by " + number(*latest) + " s");
  }

  void judgeServer() {
    if (!server_.runs()) {
      result_.failures.emplace_back("the server has ended");
      result_.cells.emplace_back();
      return;
    }
    std::size_t const peak = server_.peakBytes() / kMebibyte;
    result_.cells.push_back(std::to_string(peak));
#ifndef __SANITIZE_ADDRESS__
    if (peak > plan_.mebibytes)
      result_.failures.push_back("the server had " + std::to_string(peak) + " MiB in memory; at most " +
                                 std::to_string(plan_.mebibytes) + " are allowed");
#endif
  }

  Plan const& plan_;
  TrialOptions const& options_;
  ServeLoad::Folder folder_;
  ServerProcess server_;
  std::size_t timeToLive_;
  double seconds_;
  Assault assault_;
  Honest honest_;
  Result result_;
};

}  // namespace

std::vector<std::string> columns() {
  std::vector<std::string> names{"load"};
  for (KindRow const& row : kKindRows) names.emplace_back(row.name);
  for (char const* other : {"latest death, s", "resident, MiB", "clients' own delay"}) names.emplace_back(other);
  return names;
}

Result run(Plan const& plan, TrialOptions const& options) { return Trial(plan, options).run(); }

}  // namespace Attack
