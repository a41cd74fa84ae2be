// The routes that tell of switches and their conditions.
#include <fnmatch.h>

#include <algorithm>
#include <map>

#include "agent/conditions/views.h"
#include "agent/server/api_call.h"

namespace Agent {
namespace {

/// So many switches are looked at in one piece of an answer.
constexpr std::size_t kSwitchesInPiece = 500;

/// Which switches a request wants.
struct SwitchFilter {
  std::optional<bool> isReady;
  std::string reason;
  std::string service;
  std::string name;
  std::string systemId;

  bool takes(std::string const& of, JudgedSwitch const& judged) const {
    bool const isReadyNow = judged.reasonOf("Ready")->truth == Truth::kTrue;
    if (isReady && *isReady != isReadyNow) return false;
    if (!name.empty() && fnmatch(name.c_str(), of.c_str(), 0) != 0) return false;
    if (!systemId.empty() && (!judged.systemId || judged.systemId->stringValue() != std::string_view(systemId)))
      return false;
    if (!service.empty() && !judged.hasService(service)) return false;
    return reason.empty() || std::any_of(judged.conditions.begin(), judged.conditions.end(), [&](auto const& one) {
             return one.judgement.reason->code == reason;
           });
  }
};

/// Rows of switches as one JSON object. A reader is a place among the switches: each is told as it is kept when the
/// reader comes to it. The counts are behind the rows, when all have been seen.
class SwitchesBody final : public BodySource {
 public:
  SwitchesBody(Service& service, SwitchFilter filter, std::size_t limit, std::string after)
      : service_(service),
        era_(service.watches().era()),
        filter_(std::move(filter)),
        limit_(limit),
        after_(std::move(after)) {}

  std::optional<std::string> next() override {
    if (isEnded_) return std::nullopt;
    if (service_.watches().era() != era_) throw std::runtime_error("the state was replaced by another one");
    std::string piece = std::exchange(hasBegun_, true) ? " " : "{\"switches\": [";
    std::size_t seen = 0;
    bool isWhole = true;
    service_.conditions().forEach(last_, [&](std::string const& name, JudgedSwitch const& judged) {
      isWhole = seen < kSwitchesInPiece && piece.size() < kPieceBytes;
      if (!isWhole) return false;
      ++seen;
      last_ = name;
      take(piece, name, judged);
      return true;
    });
    isEnded_ = isWhole;
    if (isEnded_) piece += tail();
    return piece;
  }

 private:
  void take(std::string& piece, std::string const& name, JudgedSwitch const& judged) {
    ++total_;
    ++reasons_[judged.reasonOf("Ready")->code];
    if (!filter_.takes(name, judged)) return;
    ++matching_;
    if (name <= after_ || told_ == limit_) {
      isMore_ = isMore_ || name > after_;
      return;
    }
    piece.append(told_++ == 0 ? "\n" : ",\n").append(switchRow(name, judged).dump());
  }

  std::string tail() const {
    Json counts = Json::object();
    for (auto const& [code, count] : reasons_) counts[std::string(code)] = count;
    Json const rest{{"total", total_}, {"matching", matching_}, {"more", isMore_}, {"reasons", counts}};
    return "\n], " + rest.dump().substr(1) + "\n";
  }

  Service& service_;
  std::size_t const era_;
  SwitchFilter const filter_;
  std::size_t const limit_;
  std::string const after_;
  /// The last switch that was looked at.
  std::string last_;
  std::size_t total_ = 0;
  std::size_t matching_ = 0;
  std::size_t told_ = 0;
  bool isMore_ = false;
  bool hasBegun_ = false;
  bool isEnded_ = false;
  /// Why switches are ready or not.
  std::map<std::string_view, std::size_t> reasons_;
};

std::string listOfReasons() {
  std::string list;
  for (ReasonRow const& row : kReasons) list.append(list.empty() ? "" : ", ").append(row.code);
  return list;
}

}  // namespace

void TreeApi::listSwitches(Call& call) {
  SwitchFilter filter;
  filter.reason = call.parameter("reason");
  filter.service = call.parameter("service");
  filter.name = call.parameter("name");
  filter.systemId = call.parameter("systemId");
  if (call.target.query.contains("ready")) filter.isReady = call.flag("ready");
  bool const isKnown = !call.target.query.contains("reason") ||
                       std::any_of(std::begin(kReasons), std::end(kReasons), [&](ReasonRow const& row) {
                         return row.code == filter.reason;
                       });
  if (!isKnown)
    throw HttpProblem(400, "reason: expected one of " + listOfReasons() + "; found " + inQuotes(filter.reason));
  HttpResponse response = jsonResponse(200, service_.kept().revision, "");
  std::size_t const limit = call.target.query.contains("limit") ? call.number("limit") : SIZE_MAX;
  response.source = std::make_unique<SwitchesBody>(service_, std::move(filter), limit, call.parameter("after"));
  call.answer(std::move(response));
}

void TreeApi::getSwitch(Call& call) {
  auto const found = service_.explain(call.rest);
  if (!found) throw HttpProblem(404, "there is no registration of " + inQuotes(call.rest));
  Revision const revision = service_.kept().revision;
  std::string const view = switchView(call.rest, found->judged, found->explanations).dump();
  answerDocument(call, revision, std::make_shared<std::string const>(view));
}

}  // namespace Agent
