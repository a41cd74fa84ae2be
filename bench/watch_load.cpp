// Loads `enrolix serve` with readers of one registration each, and prints what waiting costs and how soon each sees
// what it waits for.
#include <sys/resource.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/document/number.h"
#include "bench/connections.h"
#include "bench/serve_network.h"
#include "bench/server_process.h"
#include "bench/service_figures.h"

namespace ServeLoad {
namespace {

using Clock = Connections::Clock;
using Seconds = std::chrono::duration<double>;

/// What is asked for.
struct Load {
  std::size_t watches = 50'000;
  /// In a second, over as many seconds.
  std::size_t writes = 1'000;
  std::size_t seconds = 20;
  /// For so many seconds there is nothing but waiting.
  std::size_t idle = 10;
  /// Of the readers, so many come back after a restart.
  std::size_t back = 1'000;
};

constexpr std::size_t kWriters = 64;
/// Connections of which the server has not heard yet.
constexpr std::size_t kAtOnce = 1'000;
constexpr std::size_t kInBatch = 500;
/// Descriptors that are no watch's.
constexpr rlim_t kOther = 200;
constexpr std::chrono::seconds kPatience(60);

constexpr std::string_view kResponse = "HTTP/1.1 ";
constexpr std::string_view kSuccess = "HTTP/1.1 200";

std::string head(std::string const& method, std::string const& target) {
  return method + " " + target + " HTTP/1.1\r\nHost: localhost\r\n";
}

/// Takes responses off that are answers to as many requests; calls `answered` for each.
Connections::Taker responseTaker(std::function<void()> answered) {
  return [answered = std::move(answered)](std::string& bytes) {
    std::size_t at = bytes.find(kResponse);
    for (; at != std::string::npos && bytes.size() >= at + kSuccess.size(); at = bytes.find(kResponse)) {
      if (!std::string_view(bytes).substr(at).starts_with(kSuccess)) throw std::runtime_error("refused: " + bytes);
      bytes.erase(0, at + kSuccess.size());
      answered();
    }
    // The end may be the beginning of another one.
    if (at == std::string::npos && bytes.size() > kResponse.size()) bytes.erase(0, bytes.size() - kResponse.size());
  };
}

/// Readers, each of one registration, and what they have been told.
class Readers {
 public:
  explicit Readers(Connections& connections) : connections_(connections) {}

  /// Begins another one; of all that there is, or of what comes.
  void add(bool isOfAll) {
    std::size_t const index = size_++;
    std::size_t const connection = connections_.add([this](std::string& bytes) { take(bytes); });
    std::string const target = "/v1/watch?prefix=registration/" + switchName(index) + "/";
    connections_.send(connection, head("GET", target + (isOfAll ? "&after=0" : "")) + "\r\n");
  }

  std::size_t size() const { return size_; }
  /// So many have got their response's head, and so many all that there was.
  std::size_t begun() const { return begun_; }
  std::size_t whole() const { return whole_; }
  std::size_t seen() const { return seen_; }

  /// From now on documents are these numbers, each written at a time, to be seen by one reader each.
  void expect(std::vector<Clock::time_point> const& written) {
    written_ = &written;
    times_.clear();
  }
  /// From when each was written until it was seen, in milliseconds.
  std::vector<double>& times() { return times_; }

 private:
  void take(std::string& bytes) {
    if (bytes.starts_with(kResponse)) {
      std::size_t const end = bytes.find("\r\n\r\n");
      if (end == std::string::npos) return;
      if (!bytes.starts_with(kSuccess)) throw std::runtime_error("no watch: " + bytes);
      bytes.erase(0, end + 4);
      ++begun_;
    }
    for (std::size_t end = bytes.find("\n\n"); end != std::string::npos; end = bytes.find("\n\n")) {
      takeEvent(std::string_view(bytes).substr(0, end));
      bytes.erase(0, end + 2);
    }
  }

  void takeEvent(std::string_view event) {
    if (event.find("event: synced") != std::string_view::npos) ++whole_;
    constexpr std::string_view kValue = "\"value\":";
    std::size_t const at = event.rfind(kValue);
    if (at == std::string_view::npos || written_ == nullptr) return;
    event.remove_prefix(at + kValue.size());
    std::size_t number = 0;
    if (!Agent::readNumber(event.substr(0, event.find('}')), number) || number >= written_->size()) return;
    times_.push_back(milliseconds(Clock::now() - (*written_)[number]));
    ++seen_;
  }

  Connections& connections_;
  std::size_t size_ = 0;
  std::size_t begun_ = 0;
  std::size_t whole_ = 0;
  std::size_t seen_ = 0;
  std::vector<Clock::time_point> const* written_ = nullptr;
  std::vector<double> times_;
};

void await(Connections& connections, char const* what, std::function<bool()> const& isDone) {
  connections.work(Clock::now() + kPatience, isDone);
  if (!isDone()) throw std::runtime_error(std::string("the load does not arrive: ") + what);
}

class Measurement {
 public:
  Measurement(std::filesystem::path const& place, Load const& load) : folder_(place), load_(load) {}

  std::vector<Row> run() {
    auto server = std::make_unique<ServerProcess>(folder_.path());
    {
      Connections connections(server->port());
      Readers readers(connections);
      open(*server, connections, readers);
      putNotes(*server);
      idle(*server, connections);
      write(*server, connections, readers);
    }
    server->kill();
    comeBack();
    return std::move(rows_);
  }

 private:
  void row(std::string const& work, std::size_t size, double figure) { rows_.push_back({work, size, figure}); }

  void putNotes(ServerProcess const& server) const {
    Agent::HttpClient client(server.url());
    for (std::size_t i = 0; i < load_.watches;) {
      std::string lines;
      for (std::size_t const end = std::min(i + kInBatch, load_.watches); i < end; ++i)
        lines += putLine(notePath(i), "\"before\"");
      ask(client, "POST", "/v1/tree", std::move(lines));
    }
  }

  /// Of a server that has nothing else in its memory, nor had: the documents come later.
  void open(ServerProcess const& server, Connections& connections, Readers& readers) {
    std::size_t const before = server.residentBytes();
    auto const begin = Clock::now();
    while (readers.size() < load_.watches) {
      readers.add(false);
      if (readers.size() - readers.begun() < kAtOnce) continue;
      await(connections, "a watch", [&] { return readers.size() - readers.begun() < kAtOnce; });
    }
    await(connections, "the watches", [&] { return readers.begun() == readers.size(); });
    row("watches opened, watches/s",
        load_.watches,
        static_cast<double>(load_.watches) / Seconds(Clock::now() - begin).count());
    row("memory, bytes/watch with its connection",
        load_.watches,
        (static_cast<double>(server.residentBytes()) - static_cast<double>(before)) /
            static_cast<double>(load_.watches));
  }

  void idle(ServerProcess const& server, Connections& connections) {
    auto const begin = Clock::now();
    Seconds const before = server.processorTime();
    connections.work(begin + std::chrono::seconds(load_.idle));
    if (load_.idle == 0) return;
    Seconds const used = server.processorTime() - before;
    row("all wait, % of a core", load_.watches, 100 * used / Seconds(Clock::now() - begin));
  }

  /// Each is sent at its time, whether or not others are answered, and its time counts from then.
  void write(ServerProcess const& server, Connections& connections, Readers& readers) {
    std::size_t const count = load_.writes * load_.seconds;
    std::vector<Clock::time_point> due(count);
    auto const step = std::chrono::duration_cast<Clock::duration>(Seconds(1.0 / static_cast<double>(load_.writes)));
    auto const begin = Clock::now();
    for (std::size_t i = 0; i < count; ++i) due[i] = begin + static_cast<Clock::rep>(i) * step;
    readers.expect(due);

    std::size_t answered = 0;
    std::vector<std::size_t> writers;
    for (std::size_t i = 0; i < kWriters; ++i) writers.push_back(connections.add(responseTaker([&] { ++answered; })));
    std::size_t const stride = std::max<std::size_t>(1, load_.watches / count) | 1;
    Clock::duration late{0};
    Seconds const before = server.processorTime();
    for (std::size_t i = 0; i < count; ++i) {
      connections.work(due[i]);
      std::string const number = std::to_string(i);
      late = std::max(late, Clock::now() - due[i]);
      connections.send(writers[i % kWriters],
                       head("PUT", "/v1/tree/" + notePath(i * stride % load_.watches)) +
                           "Content-Length: " + std::to_string(number.size()) + "\r\n\r\n" + number);
    }
    await(connections, "the answers", [&] { return answered == count; });
    await(connections, "the changes", [&] { return readers.seen() == count; });
    Seconds const used = server.processorTime() - before;
    std::string const rate = "at " + std::to_string(load_.writes) + " writes/s: ";
    std::vector<double>& times = readers.times();
    row(rate + "from due to seen, median, ms", load_.watches, percentile(times, 0.5));
    row(rate + "from due to seen, 99th percentile, ms", load_.watches, percentile(times, 0.99));
    row(rate + "from due to seen, 99.9th percentile, ms", load_.watches, percentile(times, 0.999));
    row(rate + "from due to seen, slowest, ms", load_.watches, percentile(times, 1));
    row(rate + "latest sent behind its time, ms", load_.watches, milliseconds(late));
    row(rate + "% of a core", load_.watches, 100 * used / Seconds(Clock::now() - begin));
  }

  /// All at once, and each for all that there is.
  void comeBack() {
    std::size_t const count = std::min(load_.back, load_.watches);
    auto const begin = Clock::now();
    ServerProcess const server(folder_.path());
    row("restart after a crash, ms", load_.watches, milliseconds(Clock::now() - begin));
    Connections connections(server.port());
    std::vector<double> times;
    auto sent = Clock::now();
    std::string const question = head("GET", "/healthz") + "\r\n";
    std::size_t health = 0;
    health = connections.add(responseTaker([&] {
      times.push_back(milliseconds(Clock::now() - sent));
      sent = Clock::now();
      connections.send(health, question);
    }));
    connections.send(health, question);
    await(connections, "the first answer", [&] { return !times.empty(); });
    auto const all = Clock::now();
    Readers readers(connections);
    while (readers.size() < count) {
      readers.add(true);
      connections.work(Clock::now());
    }
    await(connections, "all readers", [&] { return readers.whole() == count; });
    row("all readers back, ms", count, milliseconds(Clock::now() - all));
    row("meanwhile: /healthz, slowest, ms", count, percentile(times, 1));
  }

  Folder folder_;
  Load load_;
  std::vector<Row> rows_;
};

/// Both this program and the server need a descriptor for each connection.
void limitToOpenFiles(Load& load) {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  rlimit const wanted{load.watches + kOther, std::max<rlim_t>(files.rlim_max, load.watches + kOther)};
  if (setrlimit(RLIMIT_NOFILE, &wanted) == 0) return;
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  std::size_t const most = files.rlim_cur > kOther ? files.rlim_cur - kOther : 1;
  if (most >= load.watches) return;
  std::cerr << "enrolix_watch_load: the limit of open files allows " << most << " watches, not " << load.watches
            << '\n';
  load.watches = most;
}

int run(std::vector<std::string> arguments) {
  Load load;
  std::map<std::string, std::size_t*> const numbers{{"--watches", &load.watches},
                                                    {"--writes", &load.writes},
                                                    {"--seconds", &load.seconds},
                                                    {"--idle", &load.idle},
                                                    {"--back", &load.back}};
  bool const isMarkdown = !arguments.empty() && arguments.back() == "--markdown";
  if (isMarkdown) arguments.pop_back();
  bool isUnderstood = arguments.size() % 2 == 1;
  for (std::size_t i = 1; isUnderstood && i < arguments.size(); i += 2) {
    auto const number = numbers.find(arguments[i]);
    isUnderstood = number != numbers.end() && Agent::readNumber(arguments[i + 1], *number->second);
  }
  if (!isUnderstood || load.watches * load.writes * load.seconds == 0) {
    std::cerr << "usage: enrolix_watch_load FOLDER [--watches COUNT] [--writes COUNT-A-SECOND] [--seconds COUNT]\n"
                 "  [--idle SECONDS] [--back COUNT] [--markdown]\n"
                 "The state goes below FOLDER, and should be on a disk.\n";
    return 2;
  }
  limitToOpenFiles(load);
  std::vector<Row> const rows = Measurement(arguments.front(), load).run();
  std::cout << (isMarkdown ? "\n### watches\n\n" : "\n==> watches\n");
  print(rows, isMarkdown);
  return 0;
}

}  // namespace
}  // namespace ServeLoad

int main(int argc, char** argv) {
  try {
    return ServeLoad::run({argv + 1, argv + argc});
  } catch (std::exception const& error) {
    std::cerr << "enrolix_watch_load: " << error.what() << '\n';
    return 1;
  }
}
