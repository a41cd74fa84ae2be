// What is said about bad input: the errors, the one line each becomes, and how input is quoted in it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Agent {

/// Input that is refused. It says what is wrong and, where known, in which field of which tree path; the code that read
/// the input adds the file and the line. The reason is one line of valid UTF-8: input in it goes through `inQuotes()`.
class InputError : public std::runtime_error {
 public:
  /// `field` names a place inside the document, as `memberField()` writes it; empty if there is none.
  InputError(std::string field, std::string const& reason) : std::runtime_error(reason), field_(std::move(field)) {}

  /// The tree path that the input was about, as it was written; empty if none is known.
  std::string const& path() const noexcept { return path_; }
  void pathIs(std::string path) { path_ = std::move(path); }

  std::string const& field() const noexcept { return field_; }
  /// What was wrong lay inside the member `key`: from now on the field starts with it.
  void isInside(std::string_view key);
  std::string reason() const { return what(); }

 private:
  std::string path_;
  std::string field_;
};

/// A file that cannot be opened, read or written; `what()` is the whole line "FILE: reason".
class FileError : public std::runtime_error {
 public:
  FileError(std::string_view file, std::string_view reason);
  /// The same with the system's text for `error`, a value of `errno`.
  FileError(std::string_view file, int error);
};

/// "FILE:LINE: PATH: FIELD: what is wrong", without line break; parts that do not exist are left out. Lines count
/// from 1.
std::string errorLine(std::string_view file, std::size_t line, InputError const& error);

/// "PATH: FIELD: reason" with what the error knows; parts that do not exist are left out.
std::string placedReason(InputError const& error);

/// `text` as one line of valid UTF-8: control characters, line separators and invalid bytes are written as escapes, and
/// what is longer than `limit` bytes loses its middle.
std::string printable(std::string_view text, std::size_t limit = SIZE_MAX);

/// `text` between double quotes, printable and short; quotes and backslashes inside are escaped.
std::string inQuotes(std::string_view text);

/// The field `key` of the object `parent`: "value.serviceConfig"; a key that would be misread is quoted:
/// `value["a.b"]`.
std::string memberField(std::string_view parent, std::string_view key);

/// The element `index` of the array `parent`: "value.list[3]".
std::string elementField(std::string_view parent, std::size_t index);

}  // namespace Agent
