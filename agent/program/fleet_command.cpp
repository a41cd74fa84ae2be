// `enrolix fleet`: plays a fleet against a server, and tells which switches are ready.
#include <algorithm>
#include <condition_variable>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "agent/client/failure.h"
#include "agent/client/follow_changes.h"
#include "agent/client/requests.h"
#include "agent/document/input_error.h"
#include "agent/document/path.h"
#include "agent/program/client_commands.h"
#include "agent/program/fleet.h"
#include "agent/view/colours.h"
#include "agent/view/tree_text.h"

namespace Agent {
namespace {

using std::chrono::milliseconds;

/// The switches that are ready, told by a watch on a thread of its own: the switches give their signs of life
/// meanwhile. Both threads hold this, as a watch to which nothing is sent cannot be ended.
class Readiness {
 public:
  Readiness(Fleet const& fleet, FleetOptions const& options, ClientSurroundings const& surroundings)
      : size_(fleet.size()),
        isJson_(options.common.format == OutputFormat::kJson),
        areColoursUsed_(isColoured(options.common, surroundings)),
        surroundings_(surroundings) {
    for (std::size_t i = 0; i < fleet.size(); ++i) names_.emplace(fleet.systemId(i), fleet.name(i));
  }

  /// The thread's work.
  void follow(Connection const& connection) {
    try {
      FollowRequest request;
      request.prefix = std::string(kPrefix);
      request.after = "0";
      request.sleep = [this](milliseconds time) { return sleep(time); };
      request.note = [this](std::string_view line) { note(line); };
      request.isEnough = [this] { return isOver(); };
      followChanges(connection, request, [this](FollowedEvent const& event) { return take(event); });
    } catch (...) {
      std::scoped_lock const lock(mutex_);
      failure_ = std::current_exception();
    }
    std::scoped_lock const lock(mutex_);
    hasEnded_ = true;
    changed_.notify_all();
  }

  /// Throws what the watch failed with.
  bool areAllReady() const {
    std::scoped_lock const lock(mutex_);
    if (failure_) std::rethrow_exception(failure_);
    return ready_.size() == size_;
  }
  std::size_t count() const {
    std::scoped_lock const lock(mutex_);
    return ready_.size();
  }

  void note(std::string_view line) {
    std::scoped_lock const lock(mutex_);
    if (!isOver_) surroundings_.note(line);
  }

  /// Nothing more is told.
  void finish() {
    std::scoped_lock const lock(mutex_);
    isOver_ = true;
    changed_.notify_all();
  }
  /// Waits a moment for the watch to end; returns whether it did.
  bool waitForEnd() {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, milliseconds(500), [this] { return hasEnded_; });
  }

 private:
  static constexpr std::string_view kPrefix = Place("controller/switch/<systemId>").prefix();

  bool isOver() const {
    std::scoped_lock const lock(mutex_);
    return isOver_;
  }

  bool sleep(milliseconds time) {
    std::unique_lock lock(mutex_);
    return !changed_.wait_for(lock, time, [this] { return isOver_; });
  }

  bool take(FollowedEvent const& event) {
    std::scoped_lock const lock(mutex_);
    if (isOver_) return false;
    // What was ready may be no longer, and if so is not told of.
    if (event.kind == FollowedEvent::Kind::kResync) unconfirmed_ = ready_;
    if (event.kind == FollowedEvent::Kind::kSynced)
      for (std::string const& systemId : std::exchange(unconfirmed_, {})) tell(systemId, false);
    if (event.kind != FollowedEvent::Kind::kChange || !event.path.starts_with(kPrefix)) return true;
    std::string const systemId = event.path.substr(kPrefix.size());
    auto const found = names_.find(systemId);
    if (found == names_.end()) return true;
    unconfirmed_.erase(systemId);
    auto const status = event.value.is_object() ? event.value.find("switchStatus") : event.value.end();
    tell(systemId, event.value.is_object() && status != event.value.end() && *status == found->second);
    return true;
  }

  // Tells of a switch that has become ready, or has ceased to be.
  void tell(std::string const& systemId, bool isReady) {
    bool const isNews = isReady ? ready_.insert(systemId).second : ready_.erase(systemId) > 0;
    if (!isNews) return;
    std::string const& name = names_.at(systemId);
    if (isJson_) {
      Json const line = {{"switch", name}, {"ready", isReady}, {"count", ready_.size()}, {"of", size_}};
      return surroundings_.print(jsonLine(line));
    }
    std::string const state = isReady ? "ready" : "gone";
    Colour const colour = isReady ? Colour::kGreen : Colour::kRed;
    surroundings_.print(printable(name) + " " + coloured(state, areColoursUsed_ ? colour : Colour::kNone) + " (" +
                        std::to_string(ready_.size()) + " of " + std::to_string(size_) + ")\n");
  }

  std::size_t size_;
  bool isJson_;
  bool areColoursUsed_;
  ClientSurroundings surroundings_;
  /// By system id.
  std::map<std::string, std::string> names_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::set<std::string> ready_;
  std::set<std::string> unconfirmed_;
  std::exception_ptr failure_;
  bool isOver_ = false;
  bool hasEnded_ = false;
};

/// Seconds as the server takes them.
std::string inSeconds(milliseconds time) {
  std::string const part = std::to_string(time.count() % 1000);
  return std::to_string(time.count() / 1000) + "." + std::string(3 - part.size(), '0') + part;
}

class Play {
 public:
  Play(FleetOptions const& options, ClientSurroundings const& surroundings)
      : options_(options),
        surroundings_(surroundings),
        steps_(std::clamp<std::size_t>(options.interval / milliseconds(50), 1, 10)),
        fleet_({options.switches, options.prefix, options.seed, steps_}),
        connection_(surroundings.connect(options.common)),
        readiness_(std::make_shared<Readiness>(fleet_, options, surroundings)),
        target_("/v1/tree?ttl=" + inSeconds(options.interval * 3)) {}

  ~Play() {
    readiness_->finish();
    if (!watch_.joinable()) return;
    if (readiness_->waitForEnd())
      watch_.join();
    else
      watch_.detach();
  }
  Play(Play const&) = delete;
  Play& operator=(Play const&) = delete;

  ExitCode run() {
    send(fleet_.everything());
    keepAlive();
    bool const isWhole = !options_.isOnce || readiness_->areAllReady();
    if (!isWhole)
      readiness_->note(std::to_string(readiness_->count()) + " of " + std::to_string(fleet_.size()) + " are ready");
    readiness_->finish();
    if (options_.isLeaving) send(fleet_.farewell());
    return isWhole ? ExitCode::kDone : ExitCode::kRefused;
  }

 private:
  using Clock = ClientSurroundings::Clock;

  void keepAlive() {
    Clock::time_point const begin = surroundings_.now();
    Clock::duration const stepTime = std::chrono::duration_cast<Clock::duration>(options_.interval) / steps_;
    Clock::time_point next = begin + stepTime;
    while (!(readiness_->areAllReady() && options_.isOnce)) {
      if (options_.duration && surroundings_.now() - begin >= *options_.duration) return;
      if (surroundings_.now() >= next) {
        // After a wait too long, what was missed is not made up for in a burst.
        next = std::max(next + stepTime, surroundings_.now());
        tryStep();
      }
      // In short pieces: what the watch tells is to be heard soon.
      auto const rest = std::chrono::ceil<milliseconds>(next - surroundings_.now());
      if (!surroundings_.sleep(std::clamp(rest, milliseconds(1), milliseconds(50)))) return;
    }
  }

  void tryStep() {
    try {
      auto const texts = fleet_.step(!options_.isOnce);
      send(texts);
      if (!texts.empty()) isCutOff_ = false;
    } catch (HttpError const& error) {
      // The server may come back without what it knew.
      fleet_.startAnew();
      if (!std::exchange(isCutOff_, true)) readiness_->note(std::string(error.what()) + "; trying again");
    }
  }

  // Sends the texts, as many in one request as it bears.
  void send(std::vector<std::string> const& texts) {
    constexpr std::size_t kTextsAtOnce = 200;
    for (std::size_t at = 0; at < texts.size(); at += kTextsAtOnce) {
      HttpRequest request = makeRequest("POST", target_);
      request.fields.emplace_back("Content-Type", "application/jsonl");
      for (std::size_t i = at; i < std::min(texts.size(), at + kTextsAtOnce); ++i) request.body += texts[i];
      HttpResponse const response = connection_.request(request);
      if (response.status == 503 || response.status == 507) throw HttpError(refusalText(readRefusal(response)));
      requireSuccess(response);
      // Now it is sure that there is a server to be watched.
      if (!watch_.joinable()) watch();
    }
  }

  void watch() {
    watch_ = std::thread([readiness = readiness_, connection = surroundings_.connect(options_.common)] {
      readiness->follow(connection);
    });
  }

  FleetOptions const& options_;
  ClientSurroundings const& surroundings_;
  std::size_t steps_;
  Fleet fleet_;
  Connection connection_;
  std::shared_ptr<Readiness> readiness_;
  std::string target_;
  std::thread watch_;
  bool isCutOff_ = false;
};

}  // namespace

ExitCode runCommand(FleetOptions const& options, ClientSurroundings const& surroundings) {
  return Play(options, surroundings).run();
}

}  // namespace Agent
