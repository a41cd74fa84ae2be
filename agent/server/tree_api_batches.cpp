// The route of batches: many documents put and deleted, a turn each or all in one.
#include <algorithm>

#include "agent/server/api_call.h"

namespace Agent {
namespace {

/// So many operations of a batch at a time; then others have their turn.
constexpr std::size_t kSlice = 256;

/// A request's body, read as a scenario.
class Body final : public ByteSource {
 public:
  explicit Body(std::string text) : text_(std::move(text)) {}

  std::size_t read(char* to, std::size_t room) override {
    std::size_t const size = std::min(room, text_.size() - at_);
    std::copy_n(text_.data() + at_, size, to);
    at_ += size;
    return size;
  }

 private:
  std::string text_;
  std::size_t at_ = 0;
};

}  // namespace

/// A batch on its way: what has been read of it, and how far it has come.
struct TreeApi::Batch {
  HttpAnswer answer;
  std::vector<Operation> operations;
  /// The line of each operation.
  std::vector<std::size_t> lines;
  std::optional<Service::TimeToLive> timeToLive;
  std::size_t applied = 0;
  /// So many of those are kept. If the others could not be, they are undone.
  std::size_t kept = 0;
  bool isUndone = false;
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

// All lines are read before the first is applied; what cannot be read ends the batch when it is its turn.
void TreeApi::postBatch(Call& call) {
  bool const isAtomic = call.flag("atomic");
  auto const batch = std::make_shared<Batch>();
  batch->timeToLive = call.timeToLive();
  ScenarioReader reader(std::make_unique<Body>(std::move(call.request.body)));
  try {
    while (std::optional<Operation> operation = reader.next()) {
      if (batch->operations.size() == limits_.batch)
        throw HttpProblem(413,
                          "more than " + std::to_string(limits_.batch) + " documents in one batch; none was applied");
      batch->operations.push_back(std::move(*operation));
      batch->lines.push_back(reader.line());
    }
  } catch (InputError const& error) {
    batch->fail(HttpProblem(400, error), reader.line());
  }
  batch->answer = call.answer;
  if (!isAtomic) return goOn(batch);
  if (!batch->problem) {
    std::size_t refused = 0;
    try {
      TurnResult const result = service_.apply(batch->operations, batch->timeToLive, &refused);
      batch->applied = batch->operations.size();
      if (result.failure) batch->fail(HttpProblem(500, *result.failure), 0);
    } catch (InputError const& error) {
      batch->fail(refusal(error), batch->lines[refused]);
    }
  }
  keep(batch);
  finish(batch);
}

/// Notes what becomes of what has been applied so far.
void TreeApi::keep(std::shared_ptr<Batch> const& batch) {
  service_.whenKept([batch, applied = batch->applied](StoreError const* problem) {
    if (problem == nullptr) {
      if (!batch->isUndone) batch->kept = applied;
      return;
    }
    batch->isUndone = true;
    batch->fail(storeProblem(*problem), 0);
  });
}

void TreeApi::finish(std::shared_ptr<Batch> const& batch) {
  service_.whenKept(
      [this, batch](StoreError const* /*problem*/) { batch->answer(batch->response(service_.revision())); });
}

void TreeApi::goOn(std::shared_ptr<Batch> const& batch) {
  if (batch->isUndone) return finish(batch);
  std::size_t const end = std::min(batch->applied + kSlice, batch->operations.size());
  while (batch->applied < end) {
    std::size_t const line = batch->lines[batch->applied];
    try {
      applyOne(service_, batch->operations[batch->applied], batch->timeToLive);
      ++batch->applied;
      continue;
    } catch (HttpProblem const& problem) {
      batch->fail(problem, line);
    } catch (StoreError const& error) {
      batch->fail(storeProblem(error), line);
    }
    batch->operations.erase(batch->operations.begin() + static_cast<std::ptrdiff_t>(batch->applied),
                            batch->operations.end());
    break;
  }
  keep(batch);
  if (batch->applied == batch->operations.size()) return finish(batch);
  loop_.post([this, batch] { goOn(batch); });
}

}  // namespace Agent
