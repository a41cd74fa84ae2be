// The program `enrolix serve` as a process of its own, and requests to it over its socket.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "agent/client/requests.h"
#include "agent/document/json_reader.h"
#include "agent/net/http_client.h"
#include "agent/store/store.h"
#include "support/program.h"

namespace Test {

/// Asks until `condition` holds; a failure of the test if it does not within half a minute.
template <class Condition>
void await(Condition condition) {
  auto const end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    ASSERT_LT(std::chrono::steady_clock::now(), end) << "what is waited for does not come";
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

/// `enrolix serve OPTIONS`, on a free port unless they say where. It ends with this object, and with the thread that
/// started it.
class Served {
 public:
  using Options = std::vector<std::string>;
  /// Variables instead of, or beside, those of the test; those that are empty are taken away.
  using Environment = std::map<std::string, std::string>;

  explicit Served(Options options, Environment environment = {})
      : options_(std::move(options)), environment_(std::move(environment)), log_("enrolix-serve-log") {
    start();
  }
  Served(Served const&) = delete;
  Served& operator=(Served const&) = delete;
  ~Served() { kill(); }

  /// Starts it, again perhaps, and waits until it listens, or has ended.
  void start() {
    launch();
    awaitAddress();
  }
  /// Starts it without waiting.
  void launch() {
    std::vector<std::string> arguments{ENROLIX_PROGRAM, "serve"};
    if (std::find(options_.begin(), options_.end(), "--listen") == options_.end())
      arguments.insert(arguments.end(), {"--listen", "127.0.0.1:0"});
    arguments.insert(arguments.end(), options_.begin(), options_.end());
    std::vector<std::string> variables = theEnvironment();
    // Nothing but system calls stands between fork and exec, because other threads may be anywhere.
    std::vector<char*> const argv = pointersTo(arguments);
    std::vector<char*> const envp = pointersTo(variables);
    std::array<int, 2> out{};
    ASSERT_EQ(::pipe2(out.data(), O_CLOEXEC), 0);
    int const log = ::open(log_.path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    process_ = ::fork();
    if (process_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::dup2(out[1], STDOUT_FILENO);
      ::dup2(log, STDERR_FILENO);
      ::execve(argv[0], argv.data(), envp.data());
      ::_exit(127);
    }
    ::close(out[1]);
    ::close(log);
    out_ = out[0];
  }
  void awaitAddress() {
    constexpr std::string_view kBegin = "enrolix: listening on ";
    line_.clear();
    for (char letter = 0; ::read(out_, &letter, 1) == 1 && letter != '\n';) line_ += letter;
    ::close(std::exchange(out_, -1));
    if (line_.starts_with(kBegin))
      url_ = line_.substr(kBegin.size());
    else
      status_ = wait();
  }

  void kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    status_ = wait();
    if (out_ >= 0) ::close(std::exchange(out_, -1));
  }
  void signal(int number) const { ::kill(process_, number); }
  /// Its exit status when it has ended by itself, or by a signal that was sent.
  int stopped() { return status_ = wait(); }
  int stop(int number = SIGTERM) {
    signal(number);
    return stopped();
  }

  /// Exit status; 128 and the signal's number if that ended it; -1 while it runs.
  int status() const { return status_; }
  bool runs() const { return process_ > 0; }
  pid_t process() const { return process_; }
  std::string const& url() const { return url_; }
  std::uint16_t port() const { return static_cast<std::uint16_t>(std::stoul(url_.substr(url_.rfind(':') + 1))); }

  /// From now on the system gives it so much of a resource, one of RLIMIT_NOFILE and the like.
  void limit(__rlimit_resource resource, rlim_t most) const {
    rlimit limits{};
    ASSERT_EQ(::prlimit(process_, resource, nullptr, &limits), 0);
    limits.rlim_cur = std::min(most, limits.rlim_max);
    ASSERT_EQ(::prlimit(process_, resource, &limits, nullptr), 0);
  }

  /// Where its standard error goes.
  std::string logFile() const { return log_.path().string(); }
  /// All that it has written to standard error, in all its lives.
  std::string log() const { return readFile(log_.path()); }

  /// Of its memory, what it has in the machine's.
  std::size_t residentBytes() const {
    std::ifstream status("/proc/" + std::to_string(process_) + "/status");
    for (std::string line; std::getline(status, line);)
      if (line.starts_with("VmRSS:")) return std::stoul(line.substr(6)) * 1024;
    return 0;
  }

 private:
  static std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
  }

  std::vector<std::string> theEnvironment() const {
    std::vector<std::string> variables;
    for (char** at = environ; *at != nullptr; ++at) {
      std::string const variable = *at;
      if (!environment_.contains(variable.substr(0, variable.find('=')))) variables.push_back(variable);
    }
    for (auto const& [name, value] : environment_)
      if (!value.empty()) variables.push_back(name + "=" + value);
    return variables;
  }

  int wait() {
    if (process_ <= 0) return status_;
    int status = 0;
    while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) continue;
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

  Options options_;
  Environment environment_;
  TemporaryPath log_;
  pid_t process_ = -1;
  int out_ = -1;
  int status_ = -1;
  std::string line_;
  std::string url_;
};

/// A client of the service: Api api(served); api.put("mount/ready/x", "true").
class Api {
 public:
  explicit Api(std::string const& url) : client_(url, std::chrono::seconds(60)) {}
  explicit Api(Served const& served) : Api(served.url()) {}

  Agent::HttpResponse send(std::string const& method, std::string const& target, std::string const& body = "",
                           Agent::HttpFields const& fields = {}) {
    return client_.request({method, target, fields, body});
  }
  Agent::HttpResponse get(std::string const& path) { return send("GET", "/v1/tree/" + path); }
  Agent::HttpResponse put(std::string const& path, std::string const& document) {
    return send("PUT", "/v1/tree/" + path, document);
  }
  Agent::HttpResponse remove(std::string const& path) { return send("DELETE", "/v1/tree/" + path); }
  /// Lines of a scenario.
  Agent::HttpResponse post(std::string const& lines, std::string const& query = "") {
    return send("POST", "/v1/tree" + query, lines);
  }

  /// The document at a path; "nothing" if there is none.
  std::string text(std::string const& path) {
    Agent::HttpResponse const response = get(path);
    return response.status == 200 ? response.body.substr(0, response.body.size() - 1) : "nothing";
  }
  /// All documents whose paths begin with the prefix.
  std::map<std::string, std::string> documents(std::string const& prefix = "") {
    Agent::HttpResponse const response = send("GET", "/v1/tree?prefix=" + prefix);
    EXPECT_EQ(response.status, 200);
    std::map<std::string, std::string> all;
    auto const object = Agent::Json::parse(response.body);
    for (auto const& [path, document] : object.items()) all[path] = document.dump();
    return all;
  }
  Agent::Json health() { return Agent::Json::parse(send("GET", "/healthz").body); }

 private:
  Agent::HttpClient client_;
};

}  // namespace Test
