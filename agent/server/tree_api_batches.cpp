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

/// A request's body, read as a scenario.
class TreeApi::BatchText final : public ByteSource {
 public:
  explicit BatchText(std::string text) : text_(std::move(text)) {}

  std::size_t read(char* to, std::size_t room) override {
    std::size_t const size = std::min(room, text_.size() - at_);
    std::copy_n(text_.data() + at_, size, to);
    at_ += size;
    return size;
  }
  /// How much of it has been read.
  std::size_t at() const { return at_; }

 private:
  std::string text_;
  std::size_t at_ = 0;
};

/// A batch on its way: what has been read of it, and how far it has come.
struct TreeApi::Batch {
  Batch(std::string body, ApiLimits const& limits) : Batch(std::make_unique<BatchText>(std::move(body)), limits) {}
  Batch(std::unique_ptr<BatchText> from, ApiLimits const& limits)
      : text(*from),
        reader(std::move(from),
               {std::min(limits.documentBytes + kLineBytes, kMaximumLineBytes),
                {std::min(limits.document.depth + 1, kMaximumNesting), limits.document.values + kLineValues}}) {}

  HttpAnswer answer;
  BatchText& text;
  ScenarioReader reader;
  std::size_t read = 0;
  std::optional<Service::TimeToLive> timeToLive;
  /// All are applied in one turn: what has been read so far, and the lines.
  bool isAtomic = false;
  std::vector<Operation> operations;
  std::vector<std::size_t> lines;
  std::size_t applied = 0;
  /// So many of those are kept. If the others could not be, they are undone.
  std::size_t kept = 0;
  bool isUndone = false;
  /// Pieces of it that are not kept yet, and whether it waits for one of them to go on.
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

/// The next operation; nothing at the end of the batch, and where it ends early.
std::optional<Operation> TreeApi::next(Batch& batch, std::size_t most) {
  try {
    std::optional<Operation> operation = batch.reader.next();
    if (!operation || batch.read++ < most) return operation;
    batch.fail(HttpProblem(413, "more than " + std::to_string(most) + " documents in one batch"), batch.reader.line());
  } catch (InputError const& error) {
    batch.fail(inputProblem(error), batch.reader.line());
  } catch (std::exception const& error) {
    batch.fail(HttpProblem(500, error.what()), batch.reader.line());
  }
  return std::nullopt;
}

void TreeApi::postBatch(Call& call) {
  auto const batch = std::make_shared<Batch>(std::move(call.request.body), limits_);
  batch->timeToLive = call.timeToLive();
  batch->answer = call.answer;
  batch->isAtomic = call.flag("atomic");
  if (batch->isAtomic) atomic_.push_back(batch);
  // What has been read of one is much more than its text: they are read one at a time.
  if (!batch->isAtomic || atomic_.size() == 1) goOn(batch);
}

// All lines have been read.
void TreeApi::applyWhole(Batch& batch) {
  std::size_t refused = 0;
  try {
    TurnResult const result = service_.apply(batch.operations, batch.timeToLive, &refused);
    batch.applied = batch.operations.size();
    if (result.failure) batch.fail(HttpProblem(500, *result.failure), 0);
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
    if (std::exchange(batch->isWaiting, false)) goOnLater(batch);
  });
}

void TreeApi::finish(std::shared_ptr<Batch> const& batch) {
  service_.whenKept([this, batch](StoreError const* /*problem*/) {
    batch->answer(batch->response(service_.kept().revision));
    forget(batch);
  });
}

// What many documents took is given back piece by piece.
void TreeApi::forget(std::shared_ptr<Batch> const& batch) {
  batch->operations.erase(
      batch->operations.end() - static_cast<std::ptrdiff_t>(std::min(batch->operations.size(), kSlice)),
      batch->operations.end());
  if (!batch->operations.empty()) return queue_.add(Urgency::kBulk, false, [this, batch] { forget(batch); });
  if (!batch->isAtomic) return;
  atomic_.pop_front();
  if (!atomic_.empty()) goOnLater(atomic_.front());
}

// What cannot be read or applied ends the batch when it is its turn.
void TreeApi::goOn(std::shared_ptr<Batch> const& batch) {
  Service::LongTask const task(service_);
  if (isStopping_ && !batch->problem) batch->fail(HttpProblem(503, "the agent stops"), 0);
  if (batch->isUndone || isStopping_) return finish(batch);
  std::size_t const most = batch->isAtomic ? std::min(limits_.batch, limits_.atomicBatch) : limits_.batch;
  std::size_t const end = batch->read + kSlice;
  std::size_t const endBytes = batch->text.at() + kSliceBytes;
  auto const endTime = loop_.now() + kSliceTime;
  bool isEnded = false;
  while (!isEnded && batch->read < end && batch->text.at() < endBytes && loop_.now() <= endTime) {
    std::optional<Operation> operation = next(*batch, most);
    isEnded = !operation || !take(*batch, std::move(*operation));
  }
  if (isEnded && batch->isAtomic && !batch->problem) applyWhole(*batch);
  if (isEnded || !batch->isAtomic) keep(batch);
  if (isEnded) return finish(batch);
  // No further ahead of the store, lest those that write meanwhile wait for all of it.
  batch->isWaiting = batch->pieces >= kPiecesAhead;
  if (!batch->isWaiting) goOnLater(batch);
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
    applyOne(service_, operation, batch.timeToLive);
    ++batch.applied;
    return true;
  } catch (HttpProblem const& problem) {
    batch.fail(problem, batch.reader.line());
  } catch (StoreError const& error) {
    batch.fail(storeProblem(error), batch.reader.line());
  } catch (std::exception const& error) {
    batch.fail(HttpProblem(500, error.what()), batch.reader.line());
  }
  return false;
}

}  // namespace Agent
