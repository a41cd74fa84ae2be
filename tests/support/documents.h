// The documents of the project, and the tables in them.
#pragma once

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/program.h"

/// A document by its name from the top folder.
inline std::string documentNamed(std::string const& name) {
  return readFile(std::filesystem::path(ENROLIX_EXAMPLES) / ".." / name);
}

/// Its words, each a space from the next, wherever its lines end.
inline std::string wordsOf(std::string const& document) {
  std::istringstream from(document);
  std::string words;
  for (std::string word; from >> word;) words += word + ' ';
  return words;
}

using TableRow = std::vector<std::string>;

/// The cells of a line of a table, without the spaces around them; a bar with a backslash belongs to its cell.
inline TableRow cellsOf(std::string const& line) {
  TableRow cells;
  std::string cell;
  for (std::size_t at = 1; at < line.size(); ++at) {
    if (line[at] == '\\' && line.substr(at + 1, 1) == "|") {
      cell += line[++at];
    } else if (line[at] != '|') {
      cell += line[at];
    } else {
      std::size_t const begin = cell.find_first_not_of(' ');
      cells.push_back(begin == std::string::npos ? "" : cell.substr(begin, cell.find_last_not_of(' ') + 1 - begin));
      cell.clear();
    }
  }
  return cells;
}

/// The rows of the tables below a heading, up to the next heading, without those that name the columns.
inline std::vector<TableRow> tableRows(std::string const& document, std::string const& heading) {
  std::vector<TableRow> rows;
  std::istringstream lines(document);
  bool isInside = false;
  bool isBelowRule = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("#")) isInside = line == heading;
    if (!line.starts_with("|")) isBelowRule = false;
    if (isInside && isBelowRule) rows.push_back(cellsOf(line));
    if (line.starts_with("|--")) isBelowRule = true;
  }
  return rows;
}
