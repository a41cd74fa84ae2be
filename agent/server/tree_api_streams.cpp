// The routes whose answers are streamed: the whole tree, watches, backups.
#include "agent/server/api_call.h"

namespace Agent {
namespace {

/// Documents as one JSON object, a line each: as they were when it was asked for, however slowly they are read.
class TreeBody final : public BodySource {
 public:
  TreeBody(Documents const& documents, std::string_view prefix) {
    auto const [begin, end] = withPrefix(documents, prefix);
    for (auto at = begin; at != end; ++at) documents_.emplace_back(at->first, at->second.text);
  }

  std::optional<std::string> next() override {
    if (isEnded_) return std::nullopt;
    std::string piece = at_ == 0 ? "{" : "";
    for (; at_ < documents_.size() && piece.size() < kPieceBytes; ++at_) {
      piece += (at_ == 0 ? "\n" : ",\n") + Json(documents_[at_].first).dump() + ": " + *documents_[at_].second;
      documents_[at_].second = nullptr;
    }
    isEnded_ = at_ == documents_.size();
    if (isEnded_) piece += "\n}\n";
    return piece;
  }

 private:
  std::vector<std::pair<std::string, DocumentText>> documents_;
  std::size_t at_ = 0;
  bool isEnded_ = false;
};

}  // namespace

void TreeApi::listDocuments(Call& call) {
  HttpResponse response = jsonResponse(200, service_.kept().revision, "");
  response.source = std::make_unique<TreeBody>(service_.kept().documents, call.parameter("prefix"));
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
