// Makes the cells of the table of switches, and lines them up.
#include "agent/view/switch_table.h"

#include <algorithm>
#include <array>

#include "agent/document/input_error.h"
#include "agent/document/utf8.h"
#include "agent/view/colours.h"
#include "agent/view/tree_text.h"

namespace Agent {
namespace {

std::string nameCell(SwitchRow const& row) { return printable(row.name); }

std::string systemIdCell(SwitchRow const& row) { return row.systemId ? printable(*row.systemId) : "-"; }

std::string stateCell(SwitchRow const& row) { return row.state; }

/// The generation that the switch asks for, and the one that it was answered.
std::string generationCell(SwitchRow const& row) {
  return (row.generationAsked ? std::to_string(*row.generationAsked) : "-") + "/" +
         (row.generationAnswered ? std::to_string(*row.generationAnswered) : "-");
}

struct Column {
  char const* heading;
  std::string (*cell)(SwitchRow const& row);
};

constexpr std::array kColumns = {
    Column{"SWITCH", nameCell},
    Column{"SYSTEM ID", systemIdCell},
    Column{"STATE", stateCell},
    Column{"GENERATION asked/answered", generationCell},
};
constexpr std::size_t kStateColumn = 2;

using Cells = std::array<std::string, kColumns.size()>;

/// Characters count, not bytes; wide and combining ones are not told apart.
std::size_t width(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < text.size(); at += std::max<std::size_t>(decodeUtf8(text, at).size, 1)) ++count;
  return count;
}

Colour stateColour(SwitchProgress progress) {
  switch (progress) {
    case SwitchProgress::kReady:
      return Colour::kGreen;
    case SwitchProgress::kWaiting:
      return Colour::kYellow;
    case SwitchProgress::kLacking:
      return Colour::kRed;
  }
  return Colour::kNone;
}

std::string publishedText(PublishedService const& published) {
  std::string paths;
  for (std::string const& path : published.mounts) paths.append(paths.empty() ? "" : ", ").append(printable(path));
  return (paths.empty() ? "no mounts" : "mounts " + paths) + (published.isReady ? " (ready)" : " (not ready)");
}

/// The services of a switch, indented under its row.
std::string serviceText(SwitchRow const& row) {
  std::vector<std::array<std::string, 3>> lines;
  std::array<std::size_t, 2> widths{};
  for (ServiceRow const& service : row.services) {
    auto const& line = lines.emplace_back(std::array{printable(service.service),
                                                     printable(service.outcome),
                                                     service.published ? publishedText(*service.published) : ""});
    for (std::size_t c = 0; c < widths.size(); ++c) widths[c] = std::max(widths[c], width(line[c]));
  }
  std::string text;
  for (auto const& line : lines) {
    text.append("    ").append(line[0]).append(widths[0] - width(line[0]) + 2, ' ').append(line[1]);
    if (!line[2].empty()) text.append(widths[1] - width(line[1]) + 2, ' ').append(line[2]);
    text.append("\n");
  }
  return text;
}

Json orNull(auto const& value) { return value ? Json(*value) : Json(); }

}  // namespace

std::string switchTable(std::vector<SwitchRow> const& rows, bool isColoured) {
  std::vector<Cells> lines(1);
  for (std::size_t c = 0; c < kColumns.size(); ++c) lines[0][c] = kColumns[c].heading;
  for (SwitchRow const& row : rows) {
    Cells& cells = lines.emplace_back();
    for (std::size_t c = 0; c < kColumns.size(); ++c) cells[c] = kColumns[c].cell(row);
  }
  std::array<std::size_t, kColumns.size()> widths{};
  for (Cells const& cells : lines)
    for (std::size_t c = 0; c < cells.size(); ++c) widths[c] = std::max(widths[c], width(cells[c]));
  std::string text;
  for (std::size_t l = 0; l < lines.size(); ++l) {
    Cells const& cells = lines[l];
    for (std::size_t c = 0; c < cells.size(); ++c) {
      bool const hasColour = isColoured && l > 0 && c == kStateColumn;
      text.append(coloured(cells[c], hasColour ? stateColour(rows[l - 1].progress) : Colour::kNone));
      if (c + 1 < cells.size()) text.append(widths[c] - width(cells[c]) + 2, ' ');
    }
    text.append("\n");
    if (l > 0) text.append(serviceText(rows[l - 1]));
  }
  return text;
}

std::string switchLines(std::vector<SwitchRow> const& rows) {
  std::string text;
  for (SwitchRow const& row : rows) {
    Json services = Json::array();
    for (ServiceRow const& service : row.services) {
      Json published;
      if (service.published) published = {{"mounts", service.published->mounts}, {"ready", service.published->isReady}};
      services.push_back({{"service", service.service}, {"outcome", service.outcome}, {"published", published}});
    }
    Json const line = {{"switch", row.name},
                       {"systemId", orNull(row.systemId)},
                       {"ready", row.progress == SwitchProgress::kReady},
                       {"state", row.state},
                       {"generationAsked", orNull(row.generationAsked)},
                       {"generationAnswered", orNull(row.generationAnswered)},
                       {"services", services}};
    text += jsonLine(line);
  }
  return text;
}

}  // namespace Agent
