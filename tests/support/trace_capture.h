// Captures of the two trace channels, each for the length of a scope.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/text/one_line.h"
#include "framework/trace/swiftlog.h"
#include "framework/trace/swiftlog_reader.h"
#include "framework/trace/trace.h"

/// Collects the text trace: TraceCapture capture({1, 3, 5}); ... EXPECT_EQ(capture.lines(), ...). One at a time for a
/// facility, which is off again afterwards.
class TraceCapture {
 public:
  explicit TraceCapture(std::initializer_list<int> levels, std::string facility = "Enrolix")
      : facility_(std::move(facility)) {
    Nox::traceLevelsIs(facility_, Nox::traceLevels(levels));
    Nox::traceEnabledIs(facility_, true);
    before_ = Nox::traceSinkIs([this](Nox::TraceMessage const& message) {
      if (message.facility != facility_) return;
      std::ostringstream line;
      line << message.level << ' ' << message.line << ' ';
      Nox::writeOneLine(line, message.text);
      lines_.push_back(line.str());
    });
  }
  TraceCapture(TraceCapture const&) = delete;
  TraceCapture& operator=(TraceCapture const&) = delete;
  ~TraceCapture() {
    Nox::traceSinkIs(std::move(before_));
    Nox::traceEnabledIs(facility_, false);
    Nox::traceLevelsIs(facility_, 0);
  }

  /// What was traced so far, each as `<level> <line tag> <text>`.
  std::vector<std::string> const& lines() const { return lines_; }
  void clear() { lines_.clear(); }

 private:
  std::string facility_;
  Nox::TraceSink before_;
  std::vector<std::string> lines_;
};

/// A path for a file of this test, removed at the end.
class TemporaryPath {
 public:
  explicit TemporaryPath(std::string_view stem) {
    static int count = 0;
    std::ostringstream name;
    name << stem << '-' << getpid() << '-' << ++count;
    path_ = std::filesystem::temp_directory_path() / name.str();
  }
  TemporaryPath(TemporaryPath const&) = delete;
  TemporaryPath& operator=(TemporaryPath const&) = delete;
  ~TemporaryPath() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::filesystem::path const& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// The lines that a ring trace file prints.
inline std::vector<std::string> printedRing(std::filesystem::path const& path) {
  std::ostringstream printed;
  Swiftlog::printRingFile(path, printed);
  std::istringstream in(printed.str());
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

/// Collects the ring-buffer trace in a file of its own: RingCapture ring; ... EXPECT_EQ(ring.messages(), ...).
class RingCapture {
 public:
  explicit RingCapture(Swiftlog::TraceFile::Sizes sizes = {.descriptions = 64U << 10, .ring = 64U << 10})
      : path_("ring-capture"), file_(Swiftlog::TraceFile::open(path_.path(), sizes)) {
    Swiftlog::theTraceFile = file_.get();
  }
  RingCapture(RingCapture const&) = delete;
  RingCapture& operator=(RingCapture const&) = delete;
  ~RingCapture() { file_.reset(); }

  /// What the file holds now, each message as `<level> <line tag> <text>`, in the order traced; at the end the line on
  /// what was dropped, if there is one.
  std::vector<std::string> messages() const {
    std::vector<std::string> lines = printedRing(path_.path());
    for (std::string& line : lines)
      if (line.front() != '(') line.erase(0, line.find(' ') + 1);
    return lines;
  }
  Swiftlog::TraceFile& file() { return *file_; }
  std::filesystem::path const& path() const { return path_.path(); }

 private:
  TemporaryPath path_;
  std::unique_ptr<Swiftlog::TraceFile> file_;
};
