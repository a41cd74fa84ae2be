// The file that standard error goes to, which may be moved away while the program runs.
#pragma once

#include <string>

namespace Agent {

/// The regular file that standard error was when this was made, by the name that it had then. Once it has been moved
/// away, as programs do that rotate logs, it can be opened anew under that name.
class LogFile {
 public:
  LogFile();

  /// Whether standard error was a regular file with a name.
  bool isThere() const noexcept { return !name_.empty(); }
  /// Absolute.
  std::string const& name() const noexcept { return name_; }

  /// Standard error is the file of that name from now on, which is made if there is none; so is standard output if both
  /// were one file. Returns why that could not be done, in one line, or nothing; then all stays as it was.
  std::string openAnew() const;

 private:
  std::string name_;
  /// What it may be read and written by, when it is made.
  unsigned permissions_ = 0;
  bool isOutputToo_ = false;
};

}  // namespace Agent
