// Reading backups: the text that a backup is, in whatever pieces it comes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "agent/document/input_error.h"
#include "agent/store/document_digest.h"
#include "agent/store/store.h"

namespace Agent {

/// The format of backups.
inline constexpr int kBackupFormat = 1;

/// Takes a backup apart and checks that it is whole: each line, their order, the count and the checksum. Errors are
/// InputErrors; `line()` tells where.
class BackupReader {
 public:
  /// `visit` gets every document, before it is known whether the backup is whole.
  explicit BackupReader(std::function<void(DocumentChange const& document)> visit) : visit_(std::move(visit)) {}

  /// Takes the next piece. Throws an InputError.
  void feed(std::string_view piece);
  /// Throws an InputError if something is missing.
  void finish() const;

  /// The line that is being read, counted from 1.
  std::size_t line() const noexcept { return line_; }
  /// The history and the revision of the state that was copied, and the number of its documents.
  HistoryId const& history() const noexcept { return history_; }
  Revision revision() const noexcept { return revision_; }
  std::uint64_t documents() const noexcept { return documents_; }

 private:
  void takeLine(std::string_view line);
  void takeHead(std::string_view line);
  void takeDocument(std::string_view line);
  void takeEnd(std::string_view line);

  std::function<void(DocumentChange const& document)> visit_;
  std::string rest_;
  std::size_t line_ = 1;
  bool isEnded_ = false;
  HistoryId history_;
  Revision revision_ = 0;
  std::uint64_t documents_ = 0;
  std::string lastPath_;
  RunningChecksum checksum_;
};

}  // namespace Agent
