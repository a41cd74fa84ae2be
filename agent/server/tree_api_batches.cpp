// The route of batches: many documents put and deleted, a turn each or all in one.
#include <algorithm>
#include <chrono>
#include <utility>

#include "agent/server/api_call.h"

namespace Agent {
namespace {

/// So much of a batch is read and applied at a time; then others have their turn.
constexpr std::size_t kSlice = 256;
constexpr std::size_t kSliceBytes = std::size_t{256} * 1024;
constexpr std::chrono::milliseconds kSliceTime(5);
constexpr std::size_t kPiecesAhead = 2;
/// What a line of a batch has beside its document: the path and the names of the members.
constexpr std::size_t kLineBytes = 1024;
constexpr std::size_t kLineValues = 2;

}  // namespace

/// A request's body, read as a scenario while it comes.
class TreeApi::BatchText final : public ByteSource {
 public:
  explicit BatchText(HttpRequest& request) : body_(std::move(request.reader)), text_(std::move(request.body)) {}

  std::size_t read(char* to, std::size_t room) override {
    if (at_ == text_.size()) {
      text_ = std::string();
      at_ = 0;
      take();
    }
    std::size_t const size = std::min(room, text_.size() - at_);
    std::copy_n(text_.data() + at_, size, to);
    at_ += size;
    read_ += size;
    return size;
  }
  bool isWaiting() const override { return isWaiting_; }

  /// Takes what has come; false if that is nothing.
  bool take() {
    auto piece = body_ ? body_->next() : std::nullopt;
    isWaiting_ = piece && piece->empty();
    if (!piece || isWaiting_) return false;
    if (text_.empty())
      text_ = std::move(*piece);
    else
      text_ += *piece;
    return true;
  }
  /// Beside what it holds itself, its reader holds so many bytes.
  void holds(std::size_t bytes) {
    if (body_) body_->heldIs(text_.capacity() + bytes);
  }
  void wakeIs(std::function<void()> wake) { body_->wakeIs(std::move(wake)); }

  /// How much of it has been read.
  std::size_t at() const { return read_; }

 private:
  std::shared_ptr<BodyReader> body_;
  std::string text_;
  std::size_t at_ = 0;
  std::size_t read_ = 0;
  bool isWaiting_ = false;
};

/// A batch on its way: what has been read of it, and how far it has come.
struct TreeApi::Batch {
  Batch(Call& of, ApiLimits const& limits) : Batch(of, std::make_unique<BatchText>(of.request), limits) {}
  Batch(Call& of, std::unique_ptr<BatchText> from, ApiLimits const& limits)
      : call(of.shared_from_this()),
        text(*from),
        reader(std::move(from),
               {std::min(limits.documentBytes + kLineBytes, kMaximumLineBytes),
                {std::min(limits.document.depth + 1, kMaximumNesting), limits.document.values + kLineValues}}) {}

  std::shared_ptr<Call> call;
  BatchText& text;
  ScenarioReader reader;
  std::size_t read = 0;
  std::optional<Service::TimeToLive> timeToLive;
  /// All are applied in one turn. It is read when all of its text is there, lest a slow client hold up others: what
  /// has been read so far, and the lines.
  bool isAtomic = false;
  bool isWhole = false;
  std::vector<Operation> operations;
  std::vector<std::size_t> lines;
  std::size_t applied = 0;
  /// So many of those are kept. If the others could not be, they are undone.
  std::size_t kept = 0;
  bool isUndone = false;
  /// Pieces of it that are not kept yet, and whether it waits for one of them, or for its client, to go on.
  std::size_t pieces = 0;
  bool isWaiting = false;
  /// What ends it early, and the line.
  std::optional<HttpProblem> problem;
  std::size_t problemLine = 0;

  void fail(HttpProblem failure, std::size_t line) {
    problem = std::move(failure);
    problemLine = line;
  }

  HttpResponse response(Revision revision) const {
    Json body;
    if (problem) {
      body["error"] = problemJson(*problem);
      if (problemLine != 0) body["error"]["line"] = problemLine;
    }
    body["applied"] = kept;
    body["revision"] = revision;
    HttpResponse result = problem ? problemResponse(*problem) : jsonResponse(200, revision, "");
    if (problem) result.fields.emplace_back("Enrolix-Revision", std::to_string(revision));
    result.body = body.dump() + "\n";
    return result;
  }
};

/// The next operation; nothing at the end of the batch, where it ends early, and where it waits for its client.
std::optional<Operation> TreeApi::next(Batch& batch, std::size_t most) {
  try {
    std::optional<Operation> operation = batch.reader.next();
    if (!operation || batch.read++ < most) return operation;
    batch.fail(HttpProblem(413, "more than " + std::to_string(most) + " documents in one batch"), batch.reader.line());
  } catch (InputError const& error) {
    batch.fail(inputProblem(error), batch.reader.line());
  } catch (BodyError const& error) {
    batch.fail(HttpProblem(error.status(), error.what()), 0);
  } catch (std::exception const& error) {
    batch.fail(HttpProblem(500, error.what()), batch.reader.line());
  }
  return std::nullopt;
}

void TreeApi::postBatch(Call& call) {
  auto const timeToLive = call.timeToLive();
  bool const isAtomic = call.flag("atomic");
  auto const batch = std::make_shared<Batch>(call, limits_);
  batch->timeToLive = timeToLive;
  batch->isAtomic = isAtomic;
  goOn(batch);
}

/// Whether an atomic batch has all of its text, and its turn.
bool TreeApi::gather(std::shared_ptr<Batch> const& batch) {
  if (batch->isWhole) return true;
  try {
    while (batch->text.take()) batch->text.holds(0);
  } catch (BodyError const& error) {
    batch->fail(HttpProblem(error.status(), error.what()), 0);
    finish(batch);
    return false;
  }
  if (batch->text.isWaiting()) {
    await(batch);
    return false;
  }
  batch->isWhole = true;
  atomic_.push_back(batch);
  // What has been read of one is much more than its text: they are read one at a time.
  return atomic_.size() == 1;
}

// All lines have been read.
void TreeApi::applyWhole(Batch& batch) {
  std::size_t refused = 0;
  try {
    // Others may have come before since its header was read.
    requireRevision(*batch.call);
    TurnResult const result = service_.apply(batch.operations, batch.timeToLive, &refused);
    batch.applied = batch.operations.size();
    if (result.failure) batch.fail(HttpProblem(500, *result.failure), 0);
  } catch (HttpProblem const& problem) {
    batch.fail(problem, 0);
  } catch (InputError const& error) {
    batch.fail(refusal(error), batch.lines[refused]);
  } catch (StoreError const& error) {
    batch.fail(storeProblem(error), 0);
  } catch (std::exception const& error) {
    batch.fail(HttpProblem(500, error.what()), 0);
  }
}

/// Notes what becomes of what has been applied so far.
void TreeApi::keep(std::shared_ptr<Batch> const& batch) {
  ++batch->pieces;
  service_.whenKept([this, batch, applied = batch->applied](StoreError const* problem) {
    --batch->pieces;
    if (problem == nullptr) {
      if (!batch->isUndone) batch->kept = applied;
    } else {
      batch->isUndone = true;
      batch->fail(storeProblem(*problem), 0);
    }
    rouse(batch);
  });
}

void TreeApi::finish(std::shared_ptr<Batch> const& batch) {
  service_.whenKept([this, batch](StoreError const* /*problem*/) {
    batch->call->answer(batch->response(service_.kept().revision));
    forget(batch);
  });
}

// What many documents took is given back piece by piece.
void TreeApi::forget(std::shared_ptr<Batch> const& batch) {
  batch->operations.erase(
      batch->operations.end() - static_cast<std::ptrdiff_t>(std::min(batch->operations.size(), kSlice)),
      batch->operations.end());
  if (!batch->operations.empty()) return queue_.add(Urgency::kBulk, false, [this, batch] { forget(batch); });
  if (!batch->isWhole) return;
  atomic_.pop_front();
  if (!atomic_.empty()) goOnLater(atomic_.front());
}

// What cannot be read or applied ends the batch when it is its turn.
void TreeApi::goOn(std::shared_ptr<Batch> const& batch) {
  service_.catchUp();
  Service::LongTask const task(service_);
  if (isStopping_ && !batch->problem) batch->fail(HttpProblem(503, "the agent stops"), 0);
  if (batch->isUndone || isStopping_) return finish(batch);
  if (batch->isAtomic && !gather(batch)) return;
  std::size_t const most = batch->isAtomic ? std::min(limits_.batch, limits_.atomicBatch) : limits_.batch;
  std::size_t const end = batch->read + kSlice;
  std::size_t const endBytes = batch->text.at() + kSliceBytes;
  auto const endTime = loop_.now() + kSliceTime;
  std::size_t const before = batch->applied;
  bool isEnded = false;
  bool isStarved = false;
  while (!isEnded && !isStarved && batch->read < end && batch->text.at() < endBytes && loop_.now() <= endTime) {
    std::optional<Operation> operation = next(*batch, most);
    isStarved = !operation && !batch->problem && batch->text.isWaiting();
    isEnded = !isStarved && (!operation || !take(*batch, std::move(*operation)));
  }
  if (isEnded && batch->isAtomic && !batch->problem) applyWhole(*batch);
  if (isEnded || batch->applied != before) keep(batch);
  if (isEnded) return finish(batch);
  // What has been read of an atomic one is held as values.
  if (!batch->isAtomic) batch->text.holds(batch->reader.lineBytes());
  // No further ahead of the store, lest those that write meanwhile wait for all of it.
  if (batch->pieces >= kPiecesAhead)
    batch->isWaiting = true;
  else if (isStarved)
    await(batch);
  else
    goOnLater(batch);
}

/// Goes on when its client has sent more, or has gone.
void TreeApi::await(std::shared_ptr<Batch> const& batch) {
  batch->isWaiting = true;
  awaited_.insert(batch);
  batch->text.wakeIs([this, weak = std::weak_ptr(batch)] {
    if (auto const found = weak.lock()) rouse(found);
  });
}

void TreeApi::rouse(std::shared_ptr<Batch> const& batch) {
  awaited_.erase(batch);
  if (std::exchange(batch->isWaiting, false)) goOnLater(batch);
}

void TreeApi::goOnLater(std::shared_ptr<Batch> const& batch) {
  queue_.add(Urgency::kBulk, false, [this, batch] { goOn(batch); });
}

/// Applies an operation, or keeps it for the end; false if it is refused.
bool TreeApi::take(Batch& batch, Operation operation) {
  if (batch.isAtomic) {
    batch.operations.push_back(std::move(operation));
    batch.lines.push_back(batch.reader.line());
    return true;
  }
  try {
    // Others may have come before since its header was read.
    if (batch.applied == 0) requireRevision(*batch.call);
    applyOne(service_, operation, batch.timeToLive);
    ++batch.applied;
    return true;
  } catch (HttpProblem const& problem) {
    batch.fail(problem, problem.status() == 412 ? 0 : batch.reader.line());
  } catch (StoreError const& error) {
    batch.fail(storeProblem(error), batch.reader.line());
  } catch (std::exception const& error) {
    batch.fail(HttpProblem(500, error.what()), batch.reader.line());
  }
  return false;
}

}  // namespace Agent
