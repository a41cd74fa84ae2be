// Scenario files: operations on the state tree, one JSON object a line.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "agent/document/json_reader.h"
#include "agent/document/path.h"

namespace Agent {

/// A line may hold this many bytes, its line break not counted.
inline constexpr std::size_t kMaximumLineBytes = 16u * 1024 * 1024;

/// How large a line may be.
struct LineLimits {
  /// The line break is not counted.
  std::size_t bytes = kMaximumLineBytes;
  /// Of the whole line, in which a document lies one deep.
  JsonLimits json = {};
};

/// A document to be put at a path, or a path to be deleted. Whether the tree allows that is not decided yet.
struct Operation {
  Path path;
  /// The document; absent in a delete.
  std::optional<Json> value;

  bool isPut() const noexcept { return value.has_value(); }
};

/// The operation that one line holds: `{"put": PATH, "value": DOCUMENT}` or `{"delete": PATH}`. Fields in errors start
/// with the operation's members: "value.enabled". Throws an InputError for anything else.
Operation parseOperation(std::string_view text, JsonLimits const& limits = {});

/// Where a scenario's bytes come from.
class ByteSource {
 public:
  virtual ~ByteSource() = default;

  /// Reads up to `room` bytes to `to` and returns how many it were, 0 at the end. Throws a FileError.
  virtual std::size_t read(char* to, std::size_t room) = 0;
  /// Whether it was no end yet: there will be more, later.
  virtual bool isWaiting() const { return false; }
};

/// Opens a file for reading; "-" is standard input. Throws a FileError.
std::unique_ptr<ByteSource> openScenario(std::string const& file);

/// Reads the operations of one scenario. Blank lines, and lines whose first character other than a blank is "#", are
/// skipped, however long they are. Lines end with LF or CRLF, the last one also with the end of the file; a byte order
/// mark in front of the first line is skipped. Memory stays within the size of one line.
class ScenarioReader {
 public:
  explicit ScenarioReader(std::unique_ptr<ByteSource> source, LineLimits const& limits = {})
      : source_(std::move(source)), limits_(limits) {}

  /// The next operation; nothing at the end, and when the source waits for the rest of a line. Throws an InputError if
  /// the line holds none, after which reading goes on with the line behind it, and what the source throws.
  std::optional<Operation> next();

  /// The memory of the line that is being read.
  std::size_t lineBytes() const noexcept { return text_.capacity(); }

  /// The number of the line read last, counted from 1.
  std::size_t line() const noexcept { return line_; }

 private:
  enum class Content { kBlank, kComment, kOperation };

  bool fill();
  bool readLine();
  void append(char const* bytes, std::size_t size);

  std::unique_ptr<ByteSource> source_;
  LineLimits limits_;
  std::array<char, 64 * 1024> chunk_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool isStarted_ = false;

  std::size_t line_ = 0;
  bool isInLine_ = false;
  std::string text_;
  Content content_ = Content::kBlank;
};

}  // namespace Agent
