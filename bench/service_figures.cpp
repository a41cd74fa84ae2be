// Asks servers and prints tables.
#include "bench/service_figures.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace ServeLoad {
namespace {

std::string grouped(std::size_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, 1, ',');
  return text;
}
std::string figureText(double figure) {
  if (figure >= 100) return grouped(static_cast<std::size_t>(std::llround(figure)));
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", figure);
  return text.data();
}

}  // namespace

Folder::Folder(std::filesystem::path const& parent) : path_((parent / "serve-load-XXXXXX").string()) {
  if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot make " + path_);
}
Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

Agent::HttpResponse ask(Agent::HttpClient& client, std::string const& method, std::string const& target,
                        std::string body) {
  Agent::HttpResponse response = client.request({method, target, {}, std::move(body)});
  if (response.status != 200) throw std::runtime_error(method + " " + target + ": " + response.body);
  return response;
}

double milliseconds(std::chrono::duration<double> time) { return time.count() * 1000; }

double percentile(std::vector<double>& values, double part) {
  auto const rank = static_cast<std::ptrdiff_t>(std::ceil(part * static_cast<double>(values.size())));
  auto const at = values.begin() + std::max<std::ptrdiff_t>(rank, 1) - 1;
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

void print(std::vector<Row> const& rows, bool isMarkdown) {
  std::vector<std::array<std::string, 3>> lines{{"work", "size", "figure"}};
  for (Row const& row : rows) lines.push_back({row.work, grouped(row.size), figureText(row.figure)});
  if (isMarkdown) {
    lines.insert(lines.begin() + 1, {"---", "---:", "---:"});
    for (auto const& [work, size, figure] : lines)
      std::cout << "| " << work << " | " << size << " | " << figure << " |\n";
    return;
  }
  std::array<std::size_t, 3> widths{};
  for (auto const& line : lines)
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  for (auto const& [work, size, figure] : lines) {
    std::cout << work << std::string(widths[0] - work.size() + 2 + widths[1] - size.size(), ' ') << size
              << std::string(2 + widths[2] - figure.size(), ' ') << figure << '\n';
  }
}

}  // namespace ServeLoad
