// What the loads of the service have in common: a folder for a server, requests that must succeed, rows of figures.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "agent/net/http_client.h"

namespace ServeLoad {

/// A folder for one server's files, removed at the end. Throws a std::runtime_error.
class Folder {
 public:
  explicit Folder(std::filesystem::path const& parent);
  ~Folder();
  Folder(Folder const&) = delete;
  Folder& operator=(Folder const&) = delete;

  std::string const& path() const { return path_; }

 private:
  std::string path_;
};

/// Throws a std::runtime_error for any answer but 200.
Agent::HttpResponse ask(Agent::HttpClient& client, std::string const& method, std::string const& target,
                        std::string body = {});

/// One row of the table: what was measured, of how many, and what came out.
struct Row {
  std::string work;
  std::size_t size;
  double figure;
};

double milliseconds(std::chrono::duration<double> time);

/// The least value that no more than the rest of them exceeds; of some values at least, whose order changes.
double percentile(std::vector<double>& values, double part);

void print(std::vector<Row> const& rows, bool isMarkdown);

}  // namespace ServeLoad
