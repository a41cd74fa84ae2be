// Puts the conditions of a switch in the order in which an operator asks for them.
#include "agent/view/explanation_text.h"

#include <algorithm>
#include <vector>

#include "agent/document/input_error.h"
#include "agent/view/colours.h"

namespace Agent {
namespace {

/// A condition, and the service that it is of.
struct Line {
  std::string service;
  Json const* condition;

  std::string name() const {
    std::string const condition_ = condition->at("condition").get<std::string>();
    return service.empty() ? condition_ : printable(service) + " " + condition_;
  }
  std::string text(char const* member) const { return printable(condition->value(member, std::string())); }
  bool isTrue() const { return condition->at("true") == Json(true); }
  bool isReady() const { return service.empty() && condition->at("condition") == "Ready"; }
  char const* word() const { return condition->at("true").is_null() ? "unknown" : isTrue() ? "yes" : "no"; }
  Colour colour() const {
    return condition->at("true").is_null() ? Colour::kYellow : isTrue() ? Colour::kGreen : Colour::kRed;
  }
  /// "2026-11-22 23:51:53 UTC".
  std::string since() const {
    std::string time = condition->at("since").at("time").get<std::string>().substr(0, 19);
    std::replace(time.begin(), time.end(), 'T', ' ');
    return printable(time) + " UTC";
  }
};

std::vector<Line> linesOf(Json const& view, std::optional<std::string> const& service) {
  std::vector<Line> lines;
  if (!service)
    for (Json const& condition : view.at("conditions")) lines.push_back({"", &condition});
  for (Json const& one : view.at("services")) {
    std::string const name = one.at("service").get<std::string>();
    if (service && *service != name) continue;
    for (Json const& condition : one.at("conditions")) lines.push_back({name, &condition});
  }
  return lines;
}

std::string remedyOf(Line const& line) {
  std::string text;
  if (std::string const advice = line.text("advice"); !advice.empty()) text += "    What clears it: " + advice + ".\n";
  if (std::string const command = line.text("command"); !command.empty()) text += "      " + command + "\n";
  return text;
}

}  // namespace

std::optional<std::string> explanationText(Json const& view, std::optional<std::string> const& service,
                                           bool isColoured) {
  std::vector<Line> const lines = linesOf(view, service);
  if (lines.empty()) return std::nullopt;
  std::string const name = printable(view.at("switch").get<std::string>());
  std::string text;
  for (Line const& line : lines) {
    if (!line.isReady()) continue;
    std::string const state = line.isTrue() ? "ready" : "not ready";
    text += name + " is " + coloured(state, isColoured ? line.colour() : Colour::kNone) + " since " + line.since() +
            ": " + line.text("sentence") + ".\n" + remedyOf(line);
  }
  // What Ready has its reason from needs no lines of its own, nor what a line before has said of the same service.
  std::string const& reason = view.at("reason").get_ref<std::string const&>();
  std::string others;
  std::string outdated;
  for (Line const& line : lines) {
    std::string const own = line.text("reason");
    if (own == "OutcomeOutdated") outdated = line.service;
    bool const isTold = line.isTrue() || line.isReady() || (line.service.empty() && own == reason) ||
                        (own == "InputsChangedSince" && outdated == line.service);
    if (!isTold) others += "  " + line.name() + ": " + line.text("sentence") + ".\n" + remedyOf(line);
  }
  if (!others.empty()) text += std::string(text.empty() ? "" : "\n") + "Not as it should be, or not known:\n" + others;
  text += text.empty() ? "" : "\n";
  std::size_t width = 0;
  for (Line const& line : lines) width = std::max(width, line.name().size());
  for (Line const& line : lines) {
    std::string const word = line.word();
    text += coloured(word, isColoured ? line.colour() : Colour::kNone) + std::string(9 - word.size(), ' ') +
            line.name() + std::string(width - line.name().size() + 2, ' ') + line.since() + "  " + line.text("reason") +
            ": " + line.text("sentence") + "\n";
  }
  return text;
}

}  // namespace Agent
