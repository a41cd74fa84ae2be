// Where results are printed to: standard output, or a file that appears only when it is complete.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

/// Makes the entries of a folder outlive the machine's power: a new one, or a new name, is lost with it otherwise.
void synchroniseFolder(std::filesystem::path const& folder);

/// The file that a path leads to through links, whether that exists or not. A circle of links leads to one of them.
std::filesystem::path behindLinks(std::filesystem::path file);

/// Output that tells of its errors. A file is written beside its place and takes it at the end, so that a program that
/// reads there finds the old content or all of the new; what is no regular file, a pipe for instance, is written to
/// directly.
class OutputFile {
 public:
  /// Whether it is a result like any other, or one that is kept: synchronised before it takes its place, and for its
  /// user alone.
  enum class Care { kPlain, kKept };

  /// Opens `file`, or standard output if absent. Throws a FileError.
  explicit OutputFile(std::optional<std::string> const& file, Care care = Care::kPlain);
  /// Leaves the place as it was unless the output was finished.
  ~OutputFile();
  OutputFile(OutputFile const&) = delete;
  OutputFile& operator=(OutputFile const&) = delete;

  /// Throws a FileError.
  void write(std::string_view text);
  /// Puts the file in its place. Nothing is written behind it. Throws a FileError.
  void finish();

 private:
  void flush();
  [[noreturn]] void fail() const;

  /// How the output is called in errors.
  std::string name_;
  /// The place that the file takes at the end, and the file until then; empty if it is written to directly.
  std::string target_;
  std::string temporary_;
  Care care_;
  int descriptor_;
  std::string buffer_;
};

}  // namespace Agent
