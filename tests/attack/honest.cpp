#include "tests/attack/honest.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "agent/document/number.h"
#include "bench/serve_network.h"
#include "bench/service_figures.h"

namespace Attack {
namespace {

using Seconds = std::chrono::duration<double>;

/// Switches are many machines.
constexpr std::size_t kOfOneAddress = 4;
constexpr std::chrono::seconds kPatience(120);
/// How often a client asks whether a heartbeat has gone, and how often one is put for that, in seconds.
constexpr std::chrono::milliseconds kBetweenQuestions(100);
constexpr double kBetweenMortals = 0.5;
/// What a client may be late with a renewal, of the time that its heartbeat lives.
constexpr double kInTime = 0.7;
/// Heartbeats of no switch.
constexpr std::size_t kFirstMortal = 1'000'000;

Honest::Clock::duration ticks(double seconds) {
  return std::chrono::duration_cast<Honest::Clock::duration>(Seconds(seconds));
}

std::size_t revisionIn(std::string const& body) {
  std::size_t const at = body.find_first_of("0123456789");
  std::size_t revision = 0;
  if (at == std::string::npos ||
      !Agent::readNumber(std::string_view(body).substr(at, body.find_first_not_of("0123456789", at) - at), revision))
    throw std::runtime_error("no revision: " + body);
  return revision;
}

}  // namespace

Honest::Honest(std::uint16_t port, std::size_t switches, std::size_t timeToLive, std::uint32_t seed)
    : connections_(port, kOfOneAddress),
      switches_(switches),
      timeToLive_(timeToLive),
      random_(seed),
      heartbeats_(switches) {
  for (std::size_t kind = 0; kind < kKinds; ++kind) {
    bool const isOfSwitches = static_cast<Kind>(kind) == Kind::renewal;
    std::size_t const count = isOfSwitches ? switches : kKindRows[kind].connections;
    for (std::size_t i = 0; i < count; ++i) of_[kind].push_back(connect());
  }
  mortalsConnection_ = connect();
}

std::size_t Honest::connections(std::size_t switches) {
  // One asks for the heartbeats that must die, and there is room for some that come anew.
  std::size_t count = switches + 10;
  for (KindRow const& row : kKindRows) count += row.connections;
  return count;
}

std::size_t Honest::connect() {
  std::size_t const number = expected_.size();
  expected_.emplace_back();
  return connections_.add([this, number](std::string& bytes) { take(number, bytes); },
                          [this, number] {
                            // What was turned away without an answer.
                            for (Expected const& one : std::exchange(expected_[number], {}))
                              if (one.kind) ++answers(*one.kind).refused;
                          });
}

// A server that refuses a request may end its connection.
std::size_t Honest::opened(std::size_t& connection) {
  if (!connections_.isOpen(connection)) connection = connect();
  return connection;
}

void Honest::sendOn(std::size_t connection, Expected const& expected, std::string const& bytes) {
  expected_[connection].push_back(expected);
  connections_.send(connection, bytes);
}

void Honest::take(std::size_t connection, std::string& bytes) {
  auto& missing = expected_[connection];
  for (Response response; !missing.empty() && takeResponse(bytes, response);) {
    Expected const expected = missing.front();
    missing.pop_front();
    takeAnswer(expected, response);
    if (expected.kind == Kind::newcomer) newcomersDone_.push_back(connection);
  }
}

void Honest::takeAnswer(Expected const& expected, Response const& response) {
  if (!expected.kind) return takeMortal(expected.subject, response);
  Answers& answers = this->answers(*expected.kind);
  if (response.status != 200) {
    ++answers.refused;
    return;
  }
  answers.times.push_back(ServeLoad::milliseconds(Clock::now() - expected.due));
  if (*expected.kind == Kind::renewal) takeRenewal(expected.subject, response);
}

// What is put again and says what it said changes nothing, unless it was gone.
void Honest::takeRenewal(std::size_t index, Response const& response) {
  std::size_t const revision = revisionIn(response.body);
  std::size_t const before = std::exchange(heartbeats_[index].revision, revision);
  if (before != 0 && before != revision) ++lost_;
}

void Honest::renew(std::size_t index, Clock::time_point due) {
  Heartbeat& heartbeat = heartbeats_[index];
  auto const now = Clock::now();
  // One that this client forgot may have died.
  if (now - heartbeat.sent > ticks(kInTime * static_cast<double>(timeToLive_))) heartbeat.revision = 0;
  heartbeat.sent = now;
  sendOn(opened(of_[static_cast<std::size_t>(Kind::renewal)][index]),
         {Kind::renewal, due, index},
         putRequest(ServeLoad::heartbeatPath(index) + "?ttl=" + std::to_string(timeToLive_), ServeLoad::kEmpty));
}

void Honest::begin() {
  for (std::size_t i = 0; i < switches_; ++i) renew(i, Clock::now());
  finish();
  answers(Kind::renewal) = {};
}

void Honest::sendDue(Kind kind, Clock::time_point due) {
  std::size_t const number = sent_[static_cast<std::size_t>(kind)]++;
  std::size_t const index = random_() % switches_;
  if (kind == Kind::renewal) return renew(number % switches_, due);
  std::string const text =
      kind == Kind::read ? request("GET", "/v1/tree/" + ServeLoad::statusPath(index))
      : kind == Kind::write
          ? putRequest(ServeLoad::configPath(index), ServeLoad::config(static_cast<unsigned>(number + 2), index))
          : request("GET", "/healthz");
  auto& connections = of_[static_cast<std::size_t>(kind)];
  sendOn(connections.empty() ? connect() : opened(connections[number % connections.size()]), {kind, due, index}, text);
}

void Honest::ask(double seconds) {
  auto const begin = Clock::now();
  end_ = begin + ticks(seconds);
  std::array<Clock::time_point, kKinds> due;
  std::array<Clock::duration, kKinds> step;
  for (std::size_t kind = 0; kind < kKinds; ++kind) {
    double const renewals = 3 * static_cast<double>(switches_) / static_cast<double>(timeToLive_);
    step[kind] = ticks(1 / (kind == static_cast<std::size_t>(Kind::renewal) ? renewals : kKindRows[kind].rate));
    // Kinds are not due at the same time.
    due[kind] = begin + step[kind] * static_cast<int>(kind) / static_cast<int>(kKinds);
  }
  for (auto next = begin; next < end_;) {
    auto const first = std::min_element(due.begin(), due.end());
    next = *first;
    connections_.work(next);
    ownDelay_ = std::max(ownDelay_, ServeLoad::milliseconds(Clock::now() - next));
    auto const kind = static_cast<std::size_t>(first - due.begin());
    sendDue(static_cast<Kind>(kind), next);
    *first += step[kind];
    sweepNewcomers();
    askMortals(Clock::now());
  }
}

void Honest::sweepNewcomers() {
  for (std::size_t const connection : std::exchange(newcomersDone_, {})) connections_.close(connection);
}

// Those are put that can die before the end.
void Honest::askMortals(Clock::time_point now) {
  std::size_t const last = mortals_.size();
  bool const isDue = last == 0 || now - mortals_.back().sent > ticks(kBetweenMortals);
  auto const path = [](std::size_t index) { return ServeLoad::heartbeatPath(kFirstMortal + index); };
  if (isDue && now + std::chrono::seconds(timeToLive_) + ticks(0.3) < end_) {
    mortals_.push_back({now});
    sendOn(opened(mortalsConnection_),
           {std::nullopt, now, last},
           putRequest(path(last) + "?ttl=" + std::to_string(timeToLive_), ServeLoad::kEmpty));
  }
  for (std::size_t i = 0; i < last; ++i) {
    Mortal& mortal = mortals_[i];
    if (!mortal.answered || mortal.gone || now < mortal.asked + kBetweenQuestions) continue;
    mortal.asked = now;
    sendOn(opened(mortalsConnection_), {std::nullopt, now, i}, request("GET", "/v1/tree/" + path(i)));
  }
}

// The first answer is that of its put.
void Honest::takeMortal(std::size_t index, Response const& response) {
  Mortal& mortal = mortals_[index];
  auto const now = Clock::now();
  if (!mortal.answered) {
    mortal.answered = now;
    if (response.status != 200) mortal.gone = now;
  } else if (response.status == 404 && !mortal.gone) {
    mortal.gone = now;
    if (now < mortal.sent + std::chrono::seconds(timeToLive_)) ++lost_;
  }
}

std::optional<double> Honest::latestDeath(double stopped) const {
  std::optional<double> latest;
  for (Mortal const& mortal : mortals_) {
    if (!mortal.answered) continue;
    auto const left = mortal.gone.value_or(end_) - *mortal.answered - std::chrono::seconds(timeToLive_);
    // One that has time left may live.
    if (mortal.gone || left.count() > 0) latest = std::max(latest.value_or(0), Seconds(left).count() - stopped);
  }
  return latest;
}

std::size_t Honest::waiting() const {
  std::size_t count = 0;
  for (auto const& missing : expected_) count += missing.size();
  return count;
}

void Honest::finish() {
  connections_.work(Clock::now() + kPatience, [this] { return waiting() == 0; });
  sweepNewcomers();
  if (waiting() > 0) throw std::runtime_error(std::to_string(waiting()) + " honest requests are not answered");
}

}  // namespace Attack
