// Makes the cells of the table of switches, and lines them up.
#include "agent/switch_table.h"

#include <algorithm>
#include <array>

#include "agent/input_error.h"
#include "agent/key_order.h"
#include "agent/service_lines.h"
#include "agent/utf8.h"

namespace Agent {
namespace {

using ControllerRegistration::SwitchConfig;
using ControllerRegistration::SwitchStatus;

/// What is known of one switch.
struct Switch {
  std::string name;
  Nox::Ptr<SwitchConfig> config;
  Nox::Ptr<SwitchStatus> status;
};

std::string nameCell(Switch const& of, Tables const& /*tables*/) { return printable(of.name, of.name.size()); }

std::string systemIdCell(Switch const& of, Tables const& /*tables*/) {
  return of.config ? keyText(of.config->systemId()) : "-";
}

std::string stateCell(Switch const& of, Tables const& tables) {
  if (!of.config) return "incomplete: no \"config\"";
  if (!of.status) return "incomplete: no \"status\"";
  auto const holder = tables.controllerStatus->switchStatus(of.config->systemId());
  if (holder == of.status) return "ready";
  if (!tables.config->enabled()) return "agent disabled";
  if (!of.config->enabled()) return "not enabled";
  if (!tables.peerTable->peer(of.config->systemId())) return "no heartbeat";
  // Registrations with one system id share a row, which tells of one of them.
  if (holder) return "system id taken by " + inQuotes(holder->name().view());
  return "not decided anew";
}

/// The generation that the switch asks for, and the one that it was answered.
std::string generationCell(Switch const& of, Tables const& /*tables*/) {
  return (of.config ? std::to_string(of.config->registrationGenId()) : "-") + "/" +
         (of.status ? std::to_string(of.status->registrationGenId()) : "-");
}

struct Column {
  char const* heading;
  std::string (*cell)(Switch const& of, Tables const& tables);
};

constexpr std::array kColumns = {
    Column{"SWITCH", nameCell},
    Column{"SYSTEM ID", systemIdCell},
    Column{"STATE", stateCell},
    Column{"GENERATION asked/answered", generationCell},
};

using Row = std::array<std::string, kColumns.size()>;

/// Characters count, not bytes; wide and combining ones are not told apart.
std::size_t width(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < text.size(); at += std::max<std::size_t>(decodeUtf8(text, at).size, 1)) ++count;
  return count;
}

/// The services of a switch, indented under its row.
std::string serviceText(Switch const& of, Tables const& tables) {
  if (!of.config || !of.status) return {};
  auto const lines = serviceLines(*of.config, *of.status, tables);
  std::size_t serviceWidth = 0;
  std::size_t outcomeWidth = 0;
  for (ServiceLine const& line : lines) {
    serviceWidth = std::max(serviceWidth, width(line.service));
    outcomeWidth = std::max(outcomeWidth, width(line.outcome));
  }
  std::string text;
  for (ServiceLine const& line : lines) {
    text.append("    ").append(line.service).append(serviceWidth - width(line.service) + 2, ' ').append(line.outcome);
    if (!line.published.empty()) text.append(outcomeWidth - width(line.outcome) + 2, ' ').append(line.published);
    text.append("\n");
  }
  return text;
}

}  // namespace

std::string switchTable(Tables const& tables) {
  std::vector<Row> rows(1);
  std::vector<std::string> below(1);  // what stands under each row
  for (std::size_t c = 0; c < kColumns.size(); ++c) rows[0][c] = kColumns[c].heading;
  for (auto const& [name, entry] : sortedByKey(tables.registrationRootDir->entries())) {
    auto const dir = Nox::ptrCast<Nox::Dir>(entry->entityRef());
    if (!dir) continue;
    Switch const of{name, dir->entity<SwitchConfig>("config"), dir->entity<SwitchStatus>("status")};
    Row& row = rows.emplace_back();
    for (std::size_t c = 0; c < kColumns.size(); ++c) row[c] = kColumns[c].cell(of, tables);
    below.push_back(serviceText(of, tables));
  }
  std::array<std::size_t, kColumns.size()> widths{};
  for (Row const& row : rows)
    for (std::size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], width(row[c]));
  std::string text;
  for (std::size_t r = 0; r < rows.size(); ++r) {
    Row const& row = rows[r];
    for (std::size_t c = 0; c + 1 < row.size(); ++c) text.append(row[c]).append(widths[c] - width(row[c]) + 2, ' ');
    text.append(row.back()).append("\n").append(below[r]);
  }
  return text;
}

}  // namespace Agent
