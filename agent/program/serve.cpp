// Puts the service together: store, registry, HTTP, log.
#include "agent/program/serve.h"

#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "agent/program/log_file.h"
#include "agent/store/memory_store.h"
#include "agent/store/sqlite_store.h"
#include "agent/tree/library_path.h"

namespace Agent {
namespace {

/// How long answers in progress may take when the agent stops.
constexpr auto kGrace = std::chrono::seconds(5);

/// There are no users: what protects the state is that it cannot be reached.
constexpr char kUnprotected[] = "not a loopback address: any client that reaches it may read and write";

std::string defaultState() {
  char const* const state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state != '\0') return (std::filesystem::path(state) / "enrolix" / "state.db").string();
  char const* const home = std::getenv("HOME");
  if (home == nullptr || *home == '\0')
    throw StoreError("no place for the state: there is no home directory; name a file with --state, or use --memory");
  return (std::filesystem::path(home) / ".local" / "state" / "enrolix" / "state.db").string();
}

/// A connection is an open file: as many as the system lets this process have.
void raiseOpenFiles() {
  rlimit files{};
  if (getrlimit(RLIMIT_NOFILE, &files) != 0) return;
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
}

std::string urlOf(ServeOptions const& options, std::uint16_t port) {
  bool const isSixth = options.address.find(':') != std::string::npos;
  return "http://" + (isSixth ? '[' + options.address + ']' : options.address) + ":" + std::to_string(port);
}

/// A hangup ends nothing: the log goes on in a file of its old name, whatever became of that which it was in.
class Hangups {
 public:
  Hangups(HttpServer& server, EventLog& log) : log_(log) {
    server.onSignal(SIGHUP, [this] { hear(); });
  }

 private:
  void hear() {
    if (!file_.isThere()) return log_.info("hangup", {});
    std::string const problem = file_.openAnew();
    if (problem.empty())
      log_.info("hangup", {{"log", file_.name()}});
    else
      log_.warning("hangup", {{"log", file_.name()}, {"reason", problem}});
  }

  EventLog& log_;
  LogFile file_;
};

class Agent {
 public:
  Agent(ServeOptions const& options, std::string const& state)
      : log_(options.logFormat),
        server_(options.address, options.port, options.http),
        hangups_(server_, log_),
        library_(libraryPath(options.library)),
        store_(openStore(state, options.acceptedLoss, log_)),
        service_(server_, library_, *store_, serviceOptions(options.service, state), log_),
        url_(urlOf(options, server_.port())),
        warning_(isLoopback(options.address) ? "" : kUnprotected),
        api_(server_, service_, options.api, Door(options.hosts), warning_) {
    log_.info("started",
              {{"url", url_},
               {"state", state.empty() ? "memory" : state},
               {"revision", service_.latest().revision},
               {"history", service_.watches().history()},
               {"documents", service_.latest().documents.size()}});
    if (!warning_.empty()) log_.warning("unprotected", {{"url", url_}, {"reason", warning_}});
    server_.handlerIs(
        [this](HttpRequest request, HttpAnswer answer) { api_.handle(std::move(request), std::move(answer)); },
        &TreeApi::problem,
        &TreeApi::isVital,
        &TreeApi::isReadAsItComes);
    for (int const signal : {SIGTERM, SIGINT}) server_.onSignal(signal, [this, signal] { stop(signal); });
    server_.onPause([this](std::string const* reason) {
      if (reason != nullptr)
        log_.warning("accepting_paused", {{"reason", *reason}});
      else
        log_.info("accepting_resumed", {});
    });
    server_.onTurnedAway([this](std::size_t count, std::string const& reason) {
      log_.warning("turned_away", {{"count", count}, {"reason", reason}});
    });
  }

  std::string const& url() const noexcept { return url_; }
  void run() {
    server_.run();
    log_.info("stopped", {{"revision", service_.kept().revision}});
  }

 private:
  static std::unique_ptr<Store> openStore(std::string const& state, std::optional<Revision> acceptedLoss,
                                          EventLog& log) {
    // Clients remember revisions longer than memory does: those of this run are behind all of an earlier one.
    auto const now = std::chrono::system_clock::now().time_since_epoch();
    auto const revision = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    if (state.empty()) return std::make_unique<MemoryStore>(std::make_shared<Memory>(static_cast<Revision>(revision)));
    auto store = std::make_unique<SqliteStore>(state, StateFileOptions{.acceptedLoss = acceptedLoss});
    for (std::string const& path : store->dropped()) log.warning("document_dropped", {{"path", path}});
    if (store->isLossAccepted()) log.warning("loss_accepted", {{"history", store->history()}});
    return store;
  }

  static ServiceOptions serviceOptions(ServiceOptions options, std::string const& state) {
    options.hasStoreThread = !state.empty();
    return options;
  }

  void stop(int signal) {
    // Not in the middle of a turn.
    if (service_.isApplying()) return server_.post([this, signal] { stop(signal); });
    log_.info("stopping", {{"signal", signal}});
    api_.stop();
    service_.stop();
    server_.stop(kGrace);
  }

  EventLog log_;
  // Everything else runs on its loop.
  HttpServer server_;
  // From here on: loading the state may take its time.
  Hangups hangups_;
  Nox::Library library_;
  std::unique_ptr<Store> store_;
  Service service_;
  std::string url_;
  std::string warning_;
  TreeApi api_;
};

}  // namespace

std::string damagedLine(std::string_view state, InputError const& error) {
  return printable(state) + ": damaged: " + placedReason(error);
}

int serve(ServeOptions const& options, std::ostream& out, std::ostream& problems) {
  std::string state;
  try {
    if (!options.isMemory) state = options.state ? *options.state : defaultState();
    raiseOpenFiles();
    Agent agent(options, state);
    out << "enrolix: listening on " << agent.url() << std::endl;
    agent.run();
    return 0;
  } catch (InputError const& error) {
    // What the store holds was never written by an agent.
    problems << damagedLine(state, error) << '\n';
  } catch (std::exception const& error) {
    std::string const reason = error.what();
    problems << printable(reason) << '\n';
  }
  return 1;
}

}  // namespace Agent
