// Accepts connections and keeps the time, all in one loop.
#include "agent/net/http_server.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <cerrno>
#include <deque>
#include <exception>
#include <map>
#include <stdexcept>
#include <system_error>
#include <unordered_set>
#include <vector>

#include "agent/net/address_shares.h"
#include "agent/net/http_connection.h"
#include "agent/net/spare_places.h"
#include "agent/net/stop_clock.h"

namespace Agent {
namespace {

namespace asio = boost::asio;

using Executor = asio::io_context::executor_type;
using ErrorCode = boost::system::error_code;
using Timer = asio::basic_waitable_timer<EventLoop::Clock, asio::wait_traits<EventLoop::Clock>, Executor>;

// How often it is told that connections are turned away.
constexpr std::chrono::seconds kBetweenTurnedAway(10);
// Clients whose connections wait to be taken: thousands come back at once. The system takes less if it is told to.
constexpr int kBacklog = 65'535;
// So many are taken before others have their turn: what each brings is read behind those that are there.
constexpr int kAcceptsInTurn = 16;
// A reader that does not read holds no more than this of the system's memory. What is on its way does not count, so
// that a fast one is not slowed down.
constexpr int kUnsent = 128 * 1024;
// In the middle of a long task, others have so long, so often.
constexpr std::chrono::milliseconds kBreath(2);
constexpr std::chrono::milliseconds kBreathEvery(4);
// So long at a time long answers are made.
constexpr std::chrono::milliseconds kPieces(1);
// How long to wait when there is no room for another connection, and for how long there must be room to say so.
constexpr std::chrono::milliseconds kAcceptPause(100);
constexpr std::chrono::seconds kCalm(1);
// In so many parts all connections are looked at, lest a request wait while that is done to tens of thousands.
constexpr std::size_t kParts = 10;
// How many descriptors the system lets this process have; the limit may change at any time.
rlim_t mostDescriptors() {
  rlimit files{};
  return ::getrlimit(RLIMIT_NOFILE, &files) == 0 ? files.rlim_cur : RLIM_INFINITY;
}

// Whether a connection that took `descriptor`, the lowest that is free, would leave too few.
bool isOwn(int descriptor, rlim_t most = mostDescriptors()) {
  return most != RLIM_INFINITY && static_cast<rlim_t>(descriptor) + kOwnDescriptors >= most;
}

std::string ownReason() {
  return "of " + std::to_string(mostDescriptors()) + " open files at a time, the last " +
         std::to_string(kOwnDescriptors) + " are the agent's own";
}

std::size_t connectionsOfOne(HttpLimits const& limits) {
  return limits.connectionsOfOne != 0 ? limits.connectionsOfOne : AddressShares::shareOf(limits.connections);
}

std::size_t bodiesOfOne(HttpLimits const& limits) {
  std::size_t const all = limits.allBodiesBytes;
  double const part = static_cast<double>(connectionsOfOne(limits)) / static_cast<double>(limits.connections);
  return part >= 1 ? all
                   : std::max(AddressShares::shareOf(all), static_cast<std::size_t>(part * static_cast<double>(all)));
}

}  // namespace

class HttpServer::Impl final : public HttpConnectionHost {
 public:
  Impl(std::string const& address, std::uint16_t port, HttpLimits const& limits)
      : limits_(limits),
        bodies_(limits.allBodiesBytes, bodiesOfOne(limits)),
        places_(limits.connections, connectionsOfOne(limits)),
        work_(asio::make_work_guard(context_)),
        acceptor_(context_),
        signals_(context_) {
    ErrorCode error;
    auto const parsed = asio::ip::make_address(address, error);
    if (error) throw std::runtime_error("cannot listen on \"" + address + "\": expected an IP address");
    asio::ip::tcp::endpoint const endpoint(parsed, port);
    acceptor_.open(endpoint.protocol(), error);
    if (!error) acceptor_.set_option(asio::socket_base::reuse_address(true), error);
    if (!error) acceptor_.bind(endpoint, error);
    // Each connection has these from the socket that listens.
    if (!error) acceptor_.set_option(asio::ip::tcp::no_delay(true), error);
    ::setsockopt(acceptor_.native_handle(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, &kUnsent, sizeof kUnsent);
    if (!error) acceptor_.listen(kBacklog, error);
    if (!error) acceptor_.non_blocking(true, error);
    if (error)
      throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port) + ": " +
                               error.message());
    port_ = acceptor_.local_endpoint().port();
    accept();
    checkTimes();
  }

  ~Impl() override {
    closeAll();
    pieces_.clear();
  }

  void at(Clock::time_point time, std::function<void()> task) {
    auto const timer = std::make_shared<Timer>(context_, time);
    // A task that waits keeps its timer, so that nothing cancels it.
    timer->async_wait([timer, task = std::move(task)](ErrorCode const&) { task(); });
  }

  // What a task throws in the middle of another one ends the loop as it would have outside.
  void breathe() {
    auto const begin = Clock::now();
    if (isBreathing_ || begin - breathed_ < kBreathEvery) return;
    isBreathing_ = true;
    try {
      while (Clock::now() - begin < kBreath && context_.poll_one() != 0) continue;
    } catch (...) {
      post([thrown = std::current_exception()] { std::rethrow_exception(thrown); });
    }
    isBreathing_ = false;
    breathed_ = Clock::now();
  }

  void onSignal(int number, std::function<void()> heard) {
    bool const isFirst = heard_.empty();
    heard_[number] = std::move(heard);
    signals_.add(number);
    if (isFirst) awaitSignal();
  }

  void stop(std::chrono::milliseconds grace) {
    isStopping_ = true;
    ErrorCode ignored;
    acceptor_.close(ignored);
    for (auto const& connection : all()) connection->stop();
    at(Clock::now() + grace, [this] { closeAll(); });
    endIfDone();
  }

  HttpLimits const& limits() const override { return limits_; }
  bool isStopping() const override { return isStopping_; }
  BodyBudget& bodies() override { return bodies_; }
  std::span<char> scratch() override { return scratch_; }
  void post(std::function<void()> task) override { asio::post(context_, std::move(task)); }
  void postPiece(std::function<void()> task) override {
    pieces_.push_back(std::move(task));
    if (pieces_.size() == 1) post([this] { runPieces(); });
  }
  void handle(HttpRequest request, HttpAnswer answer) override { handler_(std::move(request), std::move(answer)); }
  HttpResponse problem(int status, std::string const& reason) override { return problem_(status, reason); }

  void left(HttpConnection& connection) override {
    auto const self = connection.shared_from_this();
    if (connections_.erase(self) != 0) places_.giveBack(connection.origin());
    spare_.remove(self);
    turnedAway_.erase(self);
    endIfDone();
  }

  bool isVital(HttpRequest const& request) const override { return isVital_ && isVital_(request); }
  bool isReadAsItComes(HttpRequest const& request) const override {
    return isReadAsItComes_ && isReadAsItComes_(request);
  }
  void turnedAway(std::string const& reason) override {
    ++turnedAwayCount_;
    turnedAwayReason_ = reason;
  }

  // The first stays in the line until it has run, so that what it adds does not begin another turn.
  void runPieces() {
    auto const end = Clock::now() + kPieces;
    do {
      auto const task = std::move(pieces_.front());
      task();
      pieces_.pop_front();
    } while (!pieces_.empty() && Clock::now() < end);
    if (!pieces_.empty()) post([this] { runPieces(); });
  }

  using Connections = std::unordered_set<std::shared_ptr<HttpConnection>>;

  void accept() {
    acceptor_.async_wait(asio::socket_base::wait_read, [this](ErrorCode const& error) {
      if (!acceptor_.is_open()) return;
      if (error) return pause(error.message());
      acceptSome();
    });
  }

  // Not one at a time: between two waits all that is ready has its turn, however long that takes.
  void acceptSome() {
    rlim_t const descriptors = mostDescriptors();
    for (int i = 0; i < kAcceptsInTurn; ++i) {
      HttpSocket socket(context_);
      asio::ip::tcp::endpoint client;
      ErrorCode error;
      acceptor_.accept(socket, client, error);
      if (error == asio::error::would_block) break;
      if (error && error != asio::error::connection_aborted) return pause(error.message());
      if (error) continue;
      bool const isLast = isOwn(socket.native_handle() + 1, descriptors);
      welcome(std::move(socket), AddressShares::originOf(client.address()));
      if (isLast) return pause(ownReason());
    }
    accept();
  }

  // Clients that connect wait in the system's queue.
  void pause(std::string const& reason) {
    lastPause_ = Clock::now();
    if (!std::exchange(isPaused_, true) && pauseTold_) pauseTold_(&reason);
    at(lastPause_ + kAcceptPause, [this] { acceptAgain(); });
  }

  void acceptAgain() {
    if (!acceptor_.is_open()) return;
    int const next = ::fcntl(acceptor_.native_handle(), F_DUPFD_CLOEXEC, 0);
    if (next < 0) return pause(std::generic_category().message(errno));
    ::close(next);
    // However few there are, one connection is taken.
    if (!connections_.empty() && isOwn(next)) return pause(ownReason());
    accept();
  }

  void welcome(HttpSocket socket, AddressShares::Origin origin) {
    std::string const wanting = reasonFor(places_.take(origin));
    auto const connection = std::make_shared<HttpConnection>(*this, std::move(socket), origin, wanting);
    if (wanting.empty())
      connections_.insert(connection);
    else if (auto const loser = spare_.add(connection))
      turnAway(loser);
    connection->begin();
  }

  // Why there is no place; empty if there is one.
  std::string reasonFor(AddressShares::Taken taken) const {
    using enum AddressShares::Taken;
    if (taken == kAllAreTaken) return "all " + std::to_string(limits_.connections) + " connections are taken";
    if (taken == kAddressHasItsShare)
      return "one address may have " + std::to_string(connectionsOfOne(limits_)) + " connections, and this one has";
    return "";
  }

  void turnAway(std::shared_ptr<HttpConnection> const& connection) {
    if (turnedAway_.size() < kMostTurnedAway) turnedAway_.insert(connection);
    connection->turnAway();
    if (!turnedAway_.contains(connection)) connection->close();
  }

  // A copy, because a connection that is visited may leave.
  std::vector<std::shared_ptr<HttpConnection>> all() const {
    std::vector<std::shared_ptr<HttpConnection>> copy(connections_.begin(), connections_.end());
    copy.insert(copy.end(), spare_.all().begin(), spare_.all().end());
    copy.insert(copy.end(), turnedAway_.begin(), turnedAway_.end());
    return copy;
  }

  void closeAll() const {
    for (auto const& connection : all()) connection->close();
  }

  // Looking at all of them now and then is less work than a timer for each that every byte would set anew.
  void checkTimes() {
    auto const now = Clock::now();
    checkPart(connections_, now);
    checkPart(turnedAway_, now);
    for (auto const& connection : std::vector(spare_.all())) connection->checkTime(now);
    part_ = (part_ + 1) % kParts;
    if (isPaused_ && now - lastPause_ > kCalm) {
      isPaused_ = false;
      if (pauseTold_) pauseTold_(nullptr);
    }
    if (turnedAwayCount_ != 0 && now - turnedAwayTold_ > kBetweenTurnedAway) {
      turnedAwayTold_ = now;
      auto const count = std::exchange(turnedAwayCount_, 0);
      if (tellTurnedAway_) tellTurnedAway_(count, turnedAwayReason_);
    }
    auto const period =
        std::clamp<std::chrono::milliseconds>(limits_.idle / 4, std::chrono::milliseconds(10), std::chrono::seconds(1));
    at(now + period / kParts, [this] { checkTimes(); });
  }

  // A part is every so many-th bucket; those that move to another bucket meanwhile are looked at next time. A
  // connection that is looked at may leave.
  void checkPart(Connections const& connections, Clock::time_point now) const {
    for (std::size_t bucket = part_; bucket < connections.bucket_count(); bucket += kParts) {
      std::vector<std::shared_ptr<HttpConnection>> const some(connections.begin(bucket), connections.end(bucket));
      for (auto const& connection : some) connection->checkTime(now);
    }
  }

  void awaitSignal() {
    signals_.async_wait([this](ErrorCode const& error, int signal) {
      if (error) return;
      awaitSignal();
      heard_.at(signal)();
    });
  }

  void endIfDone() {
    // Behind all that is ready to run.
    if (isStopping_ && connections_.empty() && spare_.all().empty() && turnedAway_.empty())
      post([this] { context_.stop(); });
  }

  HttpLimits const limits_;
  BodyBudget bodies_;
  AddressShares places_;
  StopClock stops_;
  HttpHandler handler_;
  std::function<HttpResponse(int, std::string const&)> problem_;
  IsKind isVital_;
  IsKind isReadAsItComes_;
  std::map<int, std::function<void()>> heard_;
  std::function<void(std::string const*)> pauseTold_;
  // From the first pause until there has been none for a while.
  bool isPaused_ = false;
  Clock::time_point lastPause_;
  // Since it was told last.
  std::size_t turnedAwayCount_ = 0;
  std::string turnedAwayReason_;
  Clock::time_point turnedAwayTold_;
  std::function<void(std::size_t, std::string const&)> tellTurnedAway_;
  // That is looked at next.
  std::size_t part_ = 0;
  std::array<char, 64 * 1024> scratch_;
  bool isStopping_ = false;
  bool isBreathing_ = false;
  // What is to be written of answers that are long.
  std::deque<std::function<void()>> pieces_;
  Clock::time_point breathed_;
  std::uint16_t port_ = 0;
  // What is ready to run goes with the context, and may hold connections; so these are closed before.
  // Not for one thread alone: then what a task has posted is not counted before its end, and a loop that breathes would
  // take itself to have nothing left to do.
  asio::io_context context_;
  asio::executor_work_guard<Executor> work_;
  asio::basic_socket_acceptor<asio::ip::tcp, Executor> acceptor_;
  asio::basic_signal_set<Executor> signals_;
  Connections connections_;
  // Those with a spare place, and those with none.
  SparePlaces spare_;
  Connections turnedAway_;
};

HttpServer::HttpServer(std::string const& address, std::uint16_t port, HttpLimits const& limits)
    : impl_(std::make_unique<Impl>(address, port, limits)) {}
HttpServer::~HttpServer() = default;

std::uint16_t HttpServer::port() const { return impl_->port_; }

void HttpServer::handlerIs(HttpHandler handler,
                           std::function<HttpResponse(int status, std::string const& reason)> problem, IsKind isVital,
                           IsKind isReadAsItComes) {
  impl_->handler_ = std::move(handler);
  impl_->problem_ = std::move(problem);
  impl_->isVital_ = std::move(isVital);
  impl_->isReadAsItComes_ = std::move(isReadAsItComes);
}

std::size_t HttpServer::connections() const { return impl_->connections_.size(); }

HttpServer::Clock::duration HttpServer::stoodStill() { return impl_->stops_.take(); }
HttpServer::Clock::time_point HttpServer::now() const { return Clock::now(); }
void HttpServer::post(std::function<void()> task) { impl_->post(std::move(task)); }
void HttpServer::at(Clock::time_point time, std::function<void()> task) { impl_->at(time, std::move(task)); }

void HttpServer::breathe() { impl_->breathe(); }
void HttpServer::onSignal(int number, std::function<void()> heard) { impl_->onSignal(number, std::move(heard)); }
void HttpServer::onPause(std::function<void(std::string const*)> told) { impl_->pauseTold_ = std::move(told); }
void HttpServer::onTurnedAway(std::function<void(std::size_t count, std::string const& reason)> told) {
  impl_->tellTurnedAway_ = std::move(told);
}
void HttpServer::run() { impl_->context_.run(); }
void HttpServer::stop(std::chrono::milliseconds grace) { impl_->stop(grace); }

}  // namespace Agent
