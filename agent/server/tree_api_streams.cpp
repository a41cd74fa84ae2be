// The routes whose answers are streamed: documents, the whole tree, watches, backups.
#include <stdexcept>

#include "agent/server/api_call.h"
#include "agent/server/text_in_pieces.h"

namespace Agent {
namespace {

/// Documents as one JSON object, a line each. A reader is no more than a place among them: each is told as it stands
/// when it comes to it.
class TreeBody final : public BodySource {
 public:
  TreeBody(Service& service, std::string prefix)
      : service_(service), era_(service.watches().era()), prefix_(std::move(prefix)) {}

  std::optional<std::string> next() override {
    if (isEnded_) return std::nullopt;
    if (service_.watches().era() != era_) throw std::runtime_error("the state was replaced by another one");
    Documents const& documents = service_.kept().documents;
    std::string piece = told_ ? "" : "{";
    if (text_.isTelling()) text_.goOn(piece, "");
    auto at = told_ ? documents.upper_bound(*told_) : documents.lower_bound(prefix_);
    for (; at != documents.end() && at->first.starts_with(prefix_) && piece.size() < kPieceBytes; ++at)
      tell(piece, at->first, at->second.text);
    isEnded_ = !text_.isTelling() && (at == documents.end() || !at->first.starts_with(prefix_));
    if (isEnded_) piece += "\n}\n";
    return piece;
  }

 private:
  void tell(std::string& piece, std::string const& path, DocumentText const& text) {
    piece.append(told_ ? ",\n" : "\n").append(Json(path).dump()).append(": ");
    told_ = path;
    text_.begin(text, piece, "", service_.watches().heldTexts());
  }

  Service& service_;
  std::size_t const era_;
  std::string const prefix_;
  /// The path behind which it goes on.
  std::optional<std::string> told_;
  TextInPieces text_;
  bool isEnded_ = false;
};

/// One long document.
class DocumentBody final : public BodySource {
 public:
  DocumentBody(DocumentText const& text, BodyBudget& held) { text_.begin(text, first_, "\n", held); }

  std::optional<std::string> next() override {
    if (!first_.empty()) return std::exchange(first_, {});
    if (!text_.isTelling()) return std::nullopt;
    std::string piece;
    text_.goOn(piece, "\n");
    return piece;
  }

 private:
  std::string first_;
  TextInPieces text_;
};

}  // namespace

void TreeApi::getDocument(Call& call) {
  std::string const path = toText(call.document.value());
  Documents const& documents = service_.kept().documents;
  auto const found = documents.find(path);
  if (found == documents.end()) throw HttpProblem(404, "there is no document here", path);
  answerDocument(call, found->second.revision, found->second.text, true);
}

// A long one is told piece by piece, and goes if all readers together hold too much.
void TreeApi::answerDocument(Call& call, Revision revision, DocumentText const& text, bool hasTag) {
  bool const isLong = text->size() >= kPieceBytes;
  HttpResponse response = jsonResponse(200, revision, isLong ? "" : *text + "\n");
  if (hasTag) response.fields.emplace_back("ETag", '"' + std::to_string(revision) + '"');
  if (isLong) response.source = std::make_unique<DocumentBody>(text, service_.watches().heldTexts());
  call.answer(std::move(response));
}

void TreeApi::listDocuments(Call& call) {
  HttpResponse response = jsonResponse(200, service_.kept().revision, "");
  response.source = std::make_unique<TreeBody>(service_, call.parameter("prefix"));
  call.answer(std::move(response));
}

void TreeApi::watch(Call& call) {
  auto const last = findField(call.request.fields, "Last-Event-ID");
  auto const after = call.target.query.find("after");
  ServerWatches& hub = service_.watches();
  std::optional<Revision> from = hub.revision();
  if (last && !last->empty())
    from = parseEventId(*last, hub.history(), "Last-Event-ID");
  else if (after != call.target.query.end())
    from = parseEventId(after->second, hub.history(), "after");
  if (hub.watches() >= limits_.watches)
    throw HttpProblem(429, "there are " + std::to_string(limits_.watches) + " watches already, as many as are allowed");
  HttpResponse response = emptyResponse(200, "text/event-stream");
  response.fields.emplace_back("Enrolix-Revision", std::to_string(hub.revision()));
  response.fields.emplace_back("Enrolix-History", hub.history());
  response.source = hub.watch(call.parameter("prefix"), from);
  call.answer(std::move(response));
}

void TreeApi::backup(Call& call) {
  if (service_.backups() >= limits_.backups)
    throw HttpProblem(429,
                      "there are " + std::to_string(limits_.backups) + " backups on their way, as many as are allowed");
  HttpResponse response = jsonResponse(200, service_.kept().revision, "");
  response.fields.front().second = "application/jsonl";
  response.fields.emplace_back("Enrolix-History", service_.watches().history());
  response.source = service_.backup();
  call.answer(std::move(response));
}

}  // namespace Agent
