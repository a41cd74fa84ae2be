// Running the program `enrolix` as a person does, and files for it.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/trace_capture.h"

/// A directory of this test's own, removed at the end.
class Folder {
 public:
  Folder() : path_("enrolix-test") { std::filesystem::create_directory(path_.path()); }

  std::string operator/(std::string const& name) const { return (path_.path() / name).string(); }
  /// Writes a file and returns its path.
  std::string write(std::string const& name, std::string const& text) const {
    std::ofstream(*this / name, std::ios::binary) << text;
    return *this / name;
  }
  std::string read(std::string const& name) const {
    std::ostringstream text;
    text << std::ifstream(*this / name, std::ios::binary).rdbuf();
    return text.str();
  }
  /// How many files it holds.
  std::ptrdiff_t files() const {
    using Iterator = std::filesystem::directory_iterator;
    return std::distance(Iterator(path_.path()), Iterator());
  }

 private:
  TemporaryPath path_;
};

inline std::string readFile(std::filesystem::path const& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

/// A scenario of one switch that becomes ready.
inline constexpr char kOneSwitch[] = R"({"put": "controller/config", "value": {"enabled": true}}
{"put": "registration/a/config", "value": {"systemId": "02:00:00:aa:00:01", "enabled": true, "registrationGenId": 3}}
{"put": "registration/a/status", "value": {}}
{"put": "heartbeat/02:00:00:aa:00:01", "value": {}}
)";

/// What a run of the program said and returned.
struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

/// Runs `enrolix ARGUMENTS` through the shell, in `folder`, so that its messages name files without a path. The
/// arguments may redirect standard input.
inline Outcome runProgram(Folder const& folder, std::string const& arguments) {
  TemporaryPath const out("enrolix-out");
  TemporaryPath const err("enrolix-err");
  std::string const command = "cd '" + (folder / "") + "' && { " + ENROLIX_PROGRAM + " " + arguments + "; } >" +
                              out.path().string() + " 2>" + err.path().string();
  int const status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out.path()), readFile(err.path())};
}
