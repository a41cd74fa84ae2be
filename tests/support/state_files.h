// State files as processes leave them: made, opened, cut off in the middle, and what is said of them.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "agent/store/sqlite_store.h"
#include "support/program.h"
#include "support/store_model.h"

namespace Test {

/// The error that `work` ends with; empty if there is none.
template <class Work>
std::string errorOf(Work const& work) {
  try {
    work();
  } catch (Agent::StoreError const& error) {
    return error.what();
  }
  return "";
}

/// The error that opening the file ends with.
inline std::string refusal(std::string const& file) {
  return errorOf([&] { Agent::SqliteStore const store(file); });
}

/// The error that examining the file ends with.
inline std::string complaint(std::string const& file) {
  return errorOf([&] { Agent::checkState(file); });
}

/// A store on the file that takes turns.
inline std::unique_ptr<Agent::SqliteStore> opened(std::string const& file) {
  auto store = std::make_unique<Agent::SqliteStore>(file);
  store->prepare();
  return store;
}

/// All files of a folder with their bytes.
inline std::map<std::string, std::string> allBytes(Folder const& folder) {
  std::map<std::string, std::string> files;
  for (auto const& entry : std::filesystem::directory_iterator(folder / ""))
    files[entry.path().filename().string()] = readFile(entry.path());
  return files;
}

/// Another process that runs `task`, to which it can send numbers; it ends when the task returns, or is killed.
class Child {
 public:
  using Send = std::function<void(Agent::Revision number)>;

  explicit Child(std::function<void(Send const& send)> const& task) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) throw std::system_error(errno, std::generic_category());
    process_ = ::fork();
    if (process_ == 0) {
      ::close(pipe[0]);
      try {
        task([&pipe](Agent::Revision number) {
          if (::write(pipe[1], &number, sizeof number) != sizeof number) ::_exit(3);
        });
        ::_exit(0);
      } catch (...) {
        ::_exit(2);
      }
    }
    ::close(pipe[1]);
    input_ = pipe[0];
  }
  ~Child() {
    kill();
    ::close(input_);
  }
  Child(Child const&) = delete;
  Child& operator=(Child const&) = delete;

  /// The next number that it sent; absent behind the last one.
  std::optional<Agent::Revision> receive() const {
    Agent::Revision number = 0;
    if (::read(input_, &number, sizeof number) != sizeof number) return std::nullopt;
    return number;
  }
  /// Waits for its end, and gives its exit status.
  int wait() {
    int status = 0;
    if (process_ > 0) ::waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    wait();
  }

 private:
  pid_t process_ = -1;
  int input_ = -1;
};

/// A database as another program would make it.
inline void makeDatabase(std::string const& file, std::string const& sql) {
  sqlite3* database = nullptr;
  ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(database);
  sqlite3_close(database);
}

/// The turns that a process commits until it is killed: each replaces one document of a few and one of all.
inline Agent::CommittedTurn turnNumber(Agent::Revision revision) {
  Agent::CommittedTurn turn =
      Agent::turnOf(revision, {"last", "of/" + std::to_string(revision % 17)}, std::to_string(revision));
  if (revision % 5 == 0) turn.changes.push_back(Agent::remove("of/" + std::to_string(revision % 7), revision));
  return turn;
}

/// A process that ended in the middle of its work: the file, and a log beside it.
inline void leaveLog(std::string const& file) {
  Child child([&](Child::Send const& send) {
    Agent::SqliteStore store(file);
    store.prepare();
    for (Agent::Revision revision = 1; revision <= 100; ++revision) commitOne(store, turnNumber(revision));
    send(1);
    ::pause();
  });
  EXPECT_TRUE(child.receive());
  child.kill();
}

}  // namespace Test
