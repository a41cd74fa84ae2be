// Writes the members of both forms.
#include "agent/conditions/views.h"

#include <array>
#include <ctime>

namespace Agent {
namespace {

/// A row names no more of them.
constexpr std::size_t kMostUnmet = 20;

Json orNull(std::optional<SystemId> const& id) { return id ? Json(id->stringValue().view()) : Json(); }

Json truthJson(Truth truth) {
  switch (truth) {
    case Truth::kFalse:
      return false;
    case Truth::kTrue:
      return true;
    case Truth::kUnknown:
      return nullptr;
  }
  return nullptr;
}

Json sinceJson(Since const& since) { return {{"revision", since.revision}, {"time", timeText(since.time)}}; }

TimedJudgement const& readyOf(JudgedSwitch const& judged) { return judged.conditions[Condition("Ready").row()]; }

Json head(std::string const& name, JudgedSwitch const& judged) {
  TimedJudgement const& ready = readyOf(judged);
  return {{"switch", name},
          {"systemId", orNull(judged.systemId)},
          {"ready", truthJson(ready.judgement.reason->truth)},
          {"reason", ready.judgement.reason->code},
          {"since", sinceJson(ready.since)}};
}

}  // namespace

std::string timeText(std::chrono::system_clock::time_point time) {
  auto const milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  std::time_t const seconds = milliseconds / 1000;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, 32> text;
  std::size_t const size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
  std::string const fraction = std::to_string(1000 + milliseconds % 1000).substr(1);
  return std::string(text.data(), size) + "." + fraction + "Z";
}

Json switchRow(std::string const& name, JudgedSwitch const& judged) {
  Json row = head(name, judged);
  Json unmet = Json::array();
  std::size_t services = 0;
  std::size_t unmetCount = 0;
  for (auto const& [judgement, since] : judged.conditions) {
    services += judgement.condition == Condition("Negotiated") ? 1 : 0;
    if (judgement.reason->truth == Truth::kTrue || ++unmetCount > kMostUnmet) continue;
    Json one{{"condition", judgement.condition.name()}, {"reason", judgement.reason->code}};
    if (judgement.condition.isOfService()) one["service"] = judgement.service.view();
    unmet.push_back(std::move(one));
  }
  row["services"] = services;
  row["unmet"] = std::move(unmet);
  row["unmetCount"] = unmetCount;
  return row;
}

Json switchView(std::string const& name, JudgedSwitch const& judged, std::span<Explanation const> explanations) {
  Json view = head(name, judged);
  Json conditions = Json::array();
  Json services = Json::array();
  for (std::size_t at = 0; at < judged.conditions.size(); ++at) {
    auto const& [judgement, since] = judged.conditions[at];
    Explanation const& words = explanations[at];
    Json one{{"condition", judgement.condition.name()},
             {"true", truthJson(judgement.reason->truth)},
             {"reason", judgement.reason->code},
             {"sentence", words.sentence},
             {"since", sinceJson(since)}};
    if (!words.advice.empty()) one["advice"] = words.advice;
    if (!words.command.empty()) one["command"] = words.command;
    if (!judgement.condition.isOfService()) {
      conditions.push_back(std::move(one));
      continue;
    }
    std::string_view const service = judgement.service.view();
    if (services.empty() || services.back()["service"] != service)
      services.push_back({{"service", service}, {"conditions", Json::array()}});
    services.back()["conditions"].push_back(std::move(one));
  }
  view["conditions"] = std::move(conditions);
  view["services"] = std::move(services);
  return view;
}

}  // namespace Agent
