// Puts values in the place of the words between angle brackets.
#include "agent/conditions/words.h"

#include <algorithm>
#include <array>

#include "agent/document/breath.h"
#include "agent/document/input_error.h"

namespace Agent {

using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;

namespace {

/// What a sentence is about.
struct Subject {
  SwitchRecords const& records;
  ServiceRecords const& service;
  Nox::Name const& serviceName;
  SwitchNeighbours const& neighbours;
};

std::string listOf(std::vector<std::string> const& words, std::string_view ifNone = "") {
  std::string list;
  for (std::string const& word : words) list.append(list.empty() ? "" : ", ").append(printable(word));
  return list.empty() ? std::string(ifNone) : list;
}

std::string versionsOf(Nox::Ptr<Controller::ServiceConfigV1 const> const& config) {
  std::vector<unsigned> numbers;
  if (config)
    for (auto const& offered : config->versionConfig()->version()) numbers.push_back(offered.fwkKey());
  std::sort(numbers.begin(), numbers.end());
  std::vector<std::string> words;
  words.reserve(numbers.size());
  for (unsigned const number : numbers) words.push_back(std::to_string(number));
  return listOf(words, "none");
}

std::string textOf(Nox::String8 const& text) { return text.empty() ? "(none)" : printable(text.view()); }
std::string textOf(unsigned number) { return std::to_string(number); }
std::string textOf(Controller::SystemId const& id) { return std::string(id.stringValue().view()); }

/// What a record that may have gone has.
template <class R, class Value>
std::string textOf(Nox::Ptr<R const> const& record, Value (R::*read)() const) {
  return record ? textOf(((*record).*read)()) : "(none)";
}

/// The outcome of a service that the switch configures and has a status of.
std::string outcomeText(ServiceRecords const& of, NegotiationOutcome (*read)(ServiceRecords const& of)) {
  if (!of.own || !isRecorded(of)) return "(none)";
  NegotiationOutcome const outcome = read(of);
  if (outcome.isCompatible) return "version " + std::to_string(outcome.version.version());
  if (outcome.isComplete && outcome.isEnabled) return "that no version is common";
  if (outcome.isComplete) return "that the controller does not know the service";
  return "that one side disables the service";
}

/// An entry that the registration does not have.
std::string newEntry(Subject const& of) {
  auto const registration = of.records.tables.registrationRootDir->entity<Nox::Dir>(of.records.name);
  std::string name = "again";
  for (int count = 2; registration && registration->entry(Nox::Name(name)); ++count)
    name = "again-" + std::to_string(count);
  return name;
}

struct WordRow {
  std::string_view word;
  std::string (*value)(Subject const& of);
};

/// What the reasons' texts may contain between angle brackets.
constexpr WordRow kWords[] = {
    {"switch", [](Subject const& of) { return printable(of.records.name.view()); }},
    {"systemId", [](Subject const& of) { return textOf(of.records.config, &SwitchConfig::systemId); }},
    {"others", [](Subject const& of) { return listOf(of.neighbours.sharers, "changing now"); }},
    {"ghosts", [](Subject const& of) { return listOf(of.neighbours.ghosts, "changing now"); }},
    {"newEntry", newEntry},
    {"asked", [](Subject const& of) { return textOf(of.records.config, &SwitchConfig::registrationGenId); }},
    {"answered", [](Subject const& of) { return textOf(of.records.status, &SwitchStatus::registrationGenId); }},
    {"statusUuid", [](Subject const& of) { return textOf(of.records.status, &SwitchStatus::controllerUUID); }},
    {"uuid", [](Subject const& of) { return textOf(of.records.tables.status->controllerUUID()); }},
    {"service", [](Subject const& of) { return printable(of.serviceName.view()); }},
    {"version", [](Subject const& of) { return outcomeText(of.service, recordedOutcome); }},
    {"own", [](Subject const& of) { return versionsOf(of.service.own); }},
    {"controller", [](Subject const& of) { return versionsOf(of.service.controller); }},
    {"side",
     [](Subject const& of) { return std::string(of.service.isOverridden ? "the override" : "the controller"); }},
    {"recorded", [](Subject const& of) { return outcomeText(of.service, recordedOutcome); }},
    {"today", [](Subject const& of) { return outcomeText(of.service, outcomeOfToday); }},
    {"offered", [](Subject const& of) { return std::to_string(of.service.offered); }},
    {"missing", [](Subject const& of) { return std::to_string(of.service.missing); }},
    {"left", [](Subject const& of) { return std::to_string(of.service.left); }},
};

std::string valueOf(std::string_view word, Subject const& of) {
  auto const row = std::find_if(std::begin(kWords), std::end(kWords), [&](WordRow const& r) { return r.word == word; });
  return row != std::end(kWords) ? row->value(of) : std::string();
}

std::string filled(std::string_view text, Subject const& of) {
  std::string result;
  for (std::size_t open = text.find('<'); open != std::string_view::npos; open = text.find('<')) {
    std::size_t const close = text.find('>', open);
    result.append(text.substr(0, open)).append(valueOf(text.substr(open + 1, close - open - 1), of));
    text.remove_prefix(close + 1);
  }
  return result.append(text);
}

/// What a shell reads as this one word.
std::string inShell(std::string const& word) {
  constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./:@%+,-";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
  std::string quoted = "'";
  for (char const c : word) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

/// The same for a command: what a word with a value in it becomes stays one word.
std::string filledCommand(std::string_view text, Subject const& of) {
  std::string result;
  while (!text.empty()) {
    std::size_t const end = std::min(text.find(' '), text.size());
    std::string_view const word = text.substr(0, end);
    result += word.find('<') == std::string_view::npos ? std::string(word) : inShell(filled(word, of));
    text.remove_prefix(end);
    std::size_t const blanks = std::min(text.find_first_not_of(' '), text.size());
    result.append(text.substr(0, blanks));
    text.remove_prefix(blanks);
  }
  return result;
}

}  // namespace

std::vector<Explanation> explain(SwitchRecords const& records, std::span<Judgement const> judgements,
                                 SwitchNeighbours const& neighbours) {
  auto const services = servicesOf(records);
  ServiceRecords const none;
  std::vector<Explanation> all;
  for (Judgement const& judgement : judgements) {
    Breath::take();
    auto const service = services.find(judgement.service);
    bool const isThere = judgement.condition.isOfService() && service != services.end();
    Subject const of{records, isThere ? service->second : none, judgement.service, neighbours};
    all.push_back({filled(judgement.reason->sentence, of),
                   filled(judgement.reason->advice, of),
                   filledCommand(judgement.reason->command, of)});
  }
  return all;
}

}  // namespace Agent
