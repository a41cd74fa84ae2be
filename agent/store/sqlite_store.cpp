// How a state file is opened, how turns are written to it, and how it is closed.
#include "agent/store/sqlite_store.h"

#include <algorithm>
#include <utility>

#include "agent/document/input_error.h"
#include "agent/store/state_location.h"
#include "agent/store/state_takeover.h"

namespace Agent {
namespace {

/// The witness of a database, and what it tells.
struct KnownWitness {
  explicit KnownWitness(SqliteDatabase const& database)
      : witness(std::make_unique<Witness>(database)), record(witness->read()) {}

  std::unique_ptr<Witness> witness;
  std::optional<Witness::Record> record;
};

// With the file for itself, SQLite keeps the index of the log in memory and not in a third file.
void lock(SqliteDatabase& database, bool hadLog) {
  // Opening makes an empty log where there is none, which closing should remove; a log that is there is not ours yet.
  database.leavesLogIs(hadLog);
  database.execute("PRAGMA locking_mode = EXCLUSIVE; PRAGMA cell_size_check = ON; PRAGMA temp_store = MEMORY");
  database.execute("BEGIN EXCLUSIVE");
}

void useLog(SqliteDatabase& database) {
  if (database.answer("PRAGMA journal_mode = WAL") != "wal") database.fail("cannot have a log beside it");
  // Each commit is synchronised. The log goes into the file at 4 MiB, and is cut down to that if one commit made it
  // longer.
  database.execute("PRAGMA synchronous = FULL; PRAGMA wal_autocheckpoint = 1024; PRAGMA journal_size_limit = 4194304");
  database.leavesLogIs(false);
}

}  // namespace

/// A file that is open, and the statements on it.
class SqliteStore::Session {
 public:
  Session(SqliteDatabase opened, std::unique_ptr<Witness> witness)
      : database_(std::move(opened)),
        witness_(std::move(witness)),
        begin_(database_, "BEGIN IMMEDIATE"),
        commit_(database_, "COMMIT"),
        put_(database_, kWriteDocument),
        checksum_(database_, "SELECT checksum_low, checksum_high FROM document WHERE path = ?"),
        remove_(database_, "DELETE FROM document WHERE path = ?"),
        writeHead_(database_, kWriteHead),
        fill_(database_, "UPDATE room SET content = randomblob(16384)") {}

  SqliteDatabase& database() noexcept { return database_; }
  Witness& witness() noexcept { return *witness_; }

  /// Does `work` in a transaction, which is undone if it throws.
  template <class Work>
  void change(Work const& work) {
    begin_.run();
    try {
      work();
      commit_.run();
    } catch (...) {
      database_.rollBack();
      throw;
    }
  }
  /// The same, and tells an outcome that is unknown: that of any failure of the commit itself but the want of room.
  template <class Work>
  void commit(Work const& work) {
    bool isCommitting = false;
    begin_.run();
    try {
      work();
      isCommitting = true;
      commit_.run();
    } catch (StoreFull const&) {
      database_.rollBack();
      throw;
    } catch (StoreError const& error) {
      database_.rollBack();
      if (!isCommitting) throw;
      throw OutcomeUnknown(std::string(error.what()) + "; whether it is kept is unknown");
    }
  }

  void put(DocumentRow const& row, Checksum const& checksum) { writeDocument(put_, row, checksum); }
  void remove(std::string const& path) {
    remove_.bind(1, path);
    remove_.run();
  }
  std::optional<Checksum> checksum(std::string const& path) {
    checksum_.bind(1, path);
    std::optional<Checksum> found;
    while (checksum_.step())
      found = Checksum{static_cast<std::uint64_t>(checksum_.number(0).value_or(0)),
                       static_cast<std::uint64_t>(checksum_.number(1).value_or(0))};
    checksum_.run();
    return found;
  }
  void headIs(StateHead const& head) { writeHead(writeHead_, head); }
  void fill() { fill_.run(); }

 private:
  SqliteDatabase database_;
  std::unique_ptr<Witness> witness_;
  SqliteStatement begin_;
  SqliteStatement commit_;
  SqliteStatement put_;
  SqliteStatement checksum_;
  SqliteStatement remove_;
  SqliteStatement writeHead_;
  SqliteStatement fill_;
};

SqliteStore::SqliteStore(std::string const& file, StateFileOptions const& options)
    : name_(file), file_(options.vfs != nullptr ? file : makeFile(file, options.acceptedLoss)), vfs_(options.vfs) {
  open(options.acceptedLoss);
}

SqliteStore::~SqliteStore() { close(); }

void SqliteStore::open(std::optional<Revision> acceptedLoss) {
  SqliteDatabase database(name_, file_, vfs_);
  checkHeader(database);
  bool const hadLog = database.hasLog();
  // Before it is locked: SQLite removes the log of an empty file.
  if (database.fileSize() == 0) {
    StateFinding const emptied = examineEmptyFile(database, hadLog);
    requireNoLoss(database.name(), emptied, acceptedLoss);
    isLossAccepted_ = !emptied.loss.empty();
  }
  lock(database, hadLog);
  // Asked again behind the lock: what another process began to make and did not finish has been undone now.
  bool const isNew = database.fileSize() == 0;
  if (isNew) {
    makeTables(database);
  } else if (checkTables(database, hadLog) != kStateFormat) {
    copyFirstFormat(database, hadLog);
    convertTables(database);
  }
  KnownWitness known(database);
  StateFinding finding = examineState(database, known.record, hadLog);
  requireNoLoss(database.name(), finding, acceptedLoss);
  if (!finding.loss.empty()) {
    acceptLoss(database, finding, known.record);
    isLossAccepted_ = true;
    dropped_ = finding.damaged;
  }
  database.execute("COMMIT");
  useLog(database);
  isLogSafe_ = !hadLog;
  head_ = finding.head;
  lastRun_ = head_.run;
  awakeBefore_ = head_.awake;
  session_ = std::make_unique<Session>(std::move(database), std::move(known.witness));
}

void SqliteStore::prepare() {
  auto const fill = [this] { session_->change([this] { session_->fill(); }); };
  if (!isLogSafe_) {
    // Its synchronisation covers all of the log, also what a process before this one wrote last and did not
    // synchronise. And it stands where a commit that failed was written, of which nothing is left.
    fill();
    if (isInDoubt_) findOut();
    isLogSafe_ = true;
  }
  if (!isInUse_) beginUse();
  fill();
}

// The file tells what became of the last commit.
void SqliteStore::findOut() {
  std::optional<StateHead> const head = readHead(session_->database());
  if (!head) throw StoreError(name_ + ": is damaged: the row of its state is not as written");
  std::chrono::milliseconds const awake = head_.awake;
  head_ = *head;
  head_.awake = std::max(awake, head_.awake);
}

// From here on the log may hold what the file lacks. The file says so itself, for good, and the witness is there
// before.
void SqliteStore::beginUse() {
  StateHead head = head_;
  head.isInUse = true;
  if (!isStarted_) ++head.run;
  session_->witness().begin({head.history, head.commits, head.revision, head.digest, head.awake});
  session_->change([&] {
    session_->headIs(head);
    if (!isStarted_) noteStart(session_->database(), head);
  });
  head_ = head;
  isStarted_ = true;
  session_->database().moveLog();
  isInUse_ = true;
  isInDoubt_ = false;
}

Revision SqliteStore::load(std::function<void(DocumentChange const& document)> const& visit) {
  if (isInDoubt_) throw StoreError(name_ + ": cannot be read before the outcome of the last commit is known");
  SqliteStatement documents(session_->database(), kReadDocuments);
  while (documents.step()) {
    DocumentRow row = documentRow(documents);
    DocumentChange document{
        row.path, std::make_shared<std::string const>(std::move(row.text)), row.revision, std::nullopt};
    if (row.timeToLive) document.timeToLive.emplace(*row.timeToLive);
    document.left = leftOf(row);
    visit(document);
  }
  return head_.revision;
}

// A heartbeat that was put between the start before and this one has all of its time; one that was not has had a full
// time at the start behind the run in which it was put, and has what is left of that.
std::optional<std::chrono::milliseconds> SqliteStore::leftOf(DocumentRow const& row) const {
  if (!row.timeToLive) return std::nullopt;
  std::chrono::milliseconds const all(*row.timeToLive);
  if (row.run >= lastRun_) return all;
  auto const began = awakeAtStart(session_->database(), row.run + 1);
  if (!began) return all;
  return std::clamp(all - (awakeBefore_ - *began), std::chrono::milliseconds(0), all);
}

void SqliteStore::commit(std::span<CommittedTurn const> turns) {
  if (turns.empty()) return;
  if (!isInUse_) throw StoreError(name_ + ": is not prepared for commits");
  StateHead head = head_;
  head.revision = turns.back().revision;
  ++head.commits;
  try {
    session_->commit([&] {
      for (CommittedTurn const& turn : turns)
        for (DocumentChange const& one : turn.changes) change(one, head);
      session_->headIs(head);
    });
    head_ = head;
    tellWitness();
  } catch (OutcomeUnknown const&) {
    isInUse_ = false;
    isInDoubt_ = true;
    isLogSafe_ = false;
    throw;
  }
}

// A commit that the witness does not know of is not relied on.
void SqliteStore::tellWitness() {
  try {
    session_->witness().write({head_.history, head_.commits, head_.revision, head_.digest, head_.awake});
  } catch (StoreError const& error) {
    throw OutcomeUnknown(error.what());
  }
}

void SqliteStore::change(DocumentChange const& change, StateHead& head) {
  if (auto const before = session_->checksum(change.path)) head.digest.remove(*before);
  if (!change.text) return session_->remove(change.path);
  DocumentRow row{change.path, *change.text, change.revision, std::nullopt, 0};
  if (change.timeToLive) {
    row.timeToLive = change.timeToLive->count();
    row.run = head.run;
  }
  Checksum const checksum = row.checksum();
  session_->put(row, checksum);
  head.digest.add(checksum);
}

void SqliteStore::awakeIs(std::chrono::milliseconds time) {
  head_.awake = awakeBefore_ + time;
  if (!isInUse_) return;
  try {
    tellWitness();
  } catch (StoreError const&) {
    // The next commit tells of the same trouble; until then a start counts less of the time.
  }
}

// A state that is closed is whole in its file. Where that fails it stays in use, as after any other end.
void SqliteStore::close() noexcept {
  if (!session_) return;
  try {
    if (isStarted_) {
      StateHead head = head_;
      head.isInUse = false;
      session_->change([&] { session_->headIs(head); });
      session_->database().moveLog();
      session_->witness().remove();
    }
  } catch (std::exception const&) {
    session_->database().leavesLogIs(true);
  }
  session_.reset();
}

StateSummary checkState(std::string const& file, char const* vfs) {
  std::string path = file;
  if (vfs == nullptr) {
    Located const found = locate(file, std::nullopt);
    if (!found.isThere) throw StoreError(printable(file) + ": there is no such file");
    path = found.file.string();
  }
  SqliteDatabase database(file, path, vfs);
  StateSummary summary;
  summary.hasLog = database.hasLog();
  if (database.fileSize() == 0) {
    requireNoLoss(database.name(), examineEmptyFile(database, summary.hasLog), std::nullopt);
    database.fail("is empty: no state has been made in it");
  }
  checkHeader(database);
  lock(database, summary.hasLog);
  summary.format = checkTables(database, summary.hasLog);
  if (summary.format == kStateFormat) {
    KnownWitness const known(database);
    StateFinding const finding = examineState(database, known.record, summary.hasLog);
    requireNoLoss(database.name(), finding, std::nullopt);
    summary.head = finding.head;
  } else {
    summary.head.revision =
        static_cast<Revision>(SqliteStatement(database, "SELECT revision FROM state").firstNumber());
    summary.head.digest.count =
        static_cast<std::uint64_t>(SqliteStatement(database, "SELECT count(*) FROM document").firstNumber());
  }
  database.rollBack();
  return summary;
}

}  // namespace Agent
