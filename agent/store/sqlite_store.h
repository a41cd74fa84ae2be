// The store that outlives the program: an SQLite database in one file, with a log and a witness beside it while it is
// in use.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "agent/store/sqlite_database.h"
#include "agent/store/state_check.h"
#include "agent/store/state_file.h"
#include "agent/store/store.h"
#include "agent/store/witness.h"

namespace Agent {

/// How a state file is opened.
struct StateFileOptions {
  /// A state that lacks what was answered is gone on with if it holds this revision.
  std::optional<Revision> acceptedLoss;
  /// The virtual file system that all files are in; the system's own if null. It outlives the store.
  char const* vfs = nullptr;
};

/// A state in a file that this process has for itself as long as the store lives.
///
/// What is committed goes to the end of a log, "FILE-wal", and from there into the file now and then, so that the log
/// stays small. Behind each commit the witness, "FILE-witness", is told of it, so that a log that lacks what was
/// committed is noticed. A store that is closed leaves the file alone. The files belong to their user (mode 0600).
/// Another program's file, one of a newer version or a damaged one is refused, and stays as it is to the last byte, and
/// the log beside it too; so is a state that is not what was last committed.
class SqliteStore final : public Store {
 public:
  /// Opens `file`, or makes it and the folders above it if it is missing or empty. A file of an earlier format is
  /// taken over, with a copy left beside it. Throws a StoreError: if another process has the file, "FILE: is in use by
  /// another process"; a StateLoss if it lacks what was answered.
  explicit SqliteStore(std::string const& file, StateFileOptions const& options = {});
  ~SqliteStore() override;

  HistoryId history() const override { return head_.history; }
  void prepare() override;
  Revision load(std::function<void(DocumentChange const& document)> const& visit) override;
  void commit(std::span<CommittedTurn const> turns) override;
  void awakeIs(std::chrono::milliseconds time) override;
  /// No other process writes to the file.
  void foreignTurnsIs(std::function<void()>) override {}

  /// The state lacked what was answered, and goes on as another history.
  bool isLossAccepted() const noexcept { return isLossAccepted_; }
  /// The documents that were not as written and were dropped then.
  std::vector<std::string> const& dropped() const noexcept { return dropped_; }

 private:
  class Session;

  void open(std::optional<Revision> acceptedLoss);
  void change(DocumentChange const& change, StateHead& head);
  void findOut();
  void beginUse();
  void tellWitness();
  void close() noexcept;
  std::optional<std::chrono::milliseconds> leftOf(DocumentRow const& row) const;

  std::string name_;
  std::string file_;
  char const* vfs_;
  /// The file as it is open.
  std::unique_ptr<Session> session_;
  /// What the state is since the last commit.
  StateHead head_;
  /// The number of the start before this one, and for how long the agent had been awake when it ended.
  std::uint64_t lastRun_ = 0;
  std::chrono::milliseconds awakeBefore_{0};
  bool isStarted_ = false;
  bool isInUse_ = false;
  /// The outcome of the last commit is unknown.
  bool isInDoubt_ = false;
  /// All that stands in the log is on the disk.
  bool isLogSafe_ = false;
  bool isLossAccepted_ = false;
  std::vector<std::string> dropped_;
};

/// What `enrolix check` says of a state.
struct StateSummary {
  StateHead head;
  bool hasLog = false;
  /// The format of the file.
  std::int64_t format = 0;
};

/// Examines the state in `file` as a start does, and changes nothing. Throws a StoreError for all that a start refuses,
/// and for a file that is missing or has not been made whole yet.
StateSummary checkState(std::string const& file, char const* vfs = nullptr);

}  // namespace Agent
