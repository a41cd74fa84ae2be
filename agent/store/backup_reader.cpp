// Checks backups line by line.
#include "agent/store/backup_reader.h"

#include "agent/document/json_reader.h"
#include "agent/document/path.h"

namespace Agent {
namespace {

// No longer document can be stored, and the rest of a line is short.
constexpr std::size_t kLongestLine = 1'100'000'000;
constexpr std::string_view kValue = ",\"value\":";

/// A whole number that is a member of an object, as large as a state counts.
std::uint64_t number(Json const& object, char const* name, std::uint64_t least = 0) {
  constexpr std::uint64_t kGreatest = std::uint64_t{1} << 62;
  auto const found = object.find(name);
  bool const isNumber = found != object.end() && found->is_number_unsigned();
  if (!isNumber || found->get<std::uint64_t>() < least || found->get<std::uint64_t>() > kGreatest)
    throw InputError(name,
                     "expected a whole number from " + std::to_string(least) + " to " + std::to_string(kGreatest));
  return found->get<std::uint64_t>();
}

std::string text(Json const& object, char const* name) {
  auto const found = object.find(name);
  if (found == object.end() || !found->is_string()) throw InputError(name, "expected a text, as a backup has here");
  return found->get<std::string>();
}

}  // namespace

void BackupReader::feed(std::string_view piece) {
  while (!piece.empty()) {
    std::size_t const end = piece.find('\n');
    rest_ += piece.substr(0, end);
    if (rest_.size() > kLongestLine)
      throw InputError("", "the line is longer than " + std::to_string(kLongestLine) + " bytes");
    if (end == std::string_view::npos) return;
    piece.remove_prefix(end + 1);
    takeLine(rest_);
    rest_.clear();
    ++line_;
  }
}

void BackupReader::finish() const {
  if (isEnded_ && rest_.empty()) return;
  throw InputError("", "the backup is cut short: its last line, with the count and the checksum, is missing");
}

void BackupReader::takeLine(std::string_view line) {
  if (isEnded_) throw InputError("", "expected the end of the backup");
  if (line_ == 1) {
    takeHead(line);
  } else if (line.starts_with("{\"path\":")) {
    takeDocument(line);
  } else {
    return takeEnd(line);
  }
  checksum_.add(line);
  checksum_.add("\n");
}

void BackupReader::takeHead(std::string_view line) {
  Json const head = line.starts_with("{") ? readJson(line) : Json();
  auto const what = head.find("enrolix");
  if (!head.is_object() || what == head.end() || *what != "backup")
    throw InputError("", "is no backup: it does not begin as one");
  std::uint64_t const format = number(head, "format");
  if (format != kBackupFormat)
    throw InputError("format",
                     "was written by another version: expected " + std::to_string(kBackupFormat) + ", found " +
                         std::to_string(format));
  history_ = text(head, "history");
  if (history_.size() != 16 || history_.find_first_not_of("0123456789abcdef") != std::string::npos)
    throw InputError("history", "expected 16 hexadecimal digits");
  revision_ = number(head, "revision");
}

// The document is taken as it stands: what reads it may have read it nested as deep as a line may be.
void BackupReader::takeDocument(std::string_view line) {
  std::size_t const at = line.find(kValue);
  if (at == std::string_view::npos || !line.ends_with('}')) throw InputError("", "expected a document with its value");
  Json const head = readJson(std::string(line.substr(0, at)) + "}");
  DocumentChange document;
  document.path = text(head, "path");
  document.revision = number(head, "revision");
  if (head.contains("ttl")) {
    if (!parsePath(document.path).place.expires()) throw InputError("ttl", "only a heartbeat has a time to live");
    document.timeToLive.emplace(static_cast<std::int64_t>(number(head, "ttl", 1)));
  }
  document.text =
      std::make_shared<std::string const>(line.substr(at + kValue.size(), line.size() - at - kValue.size() - 1));
  if (toText(parsePath(document.path)) != document.path) throw InputError("path", "expected a path as it is written");
  readJson(*document.text);
  if (documents_ > 0 && document.path <= lastPath_) throw InputError("path", "expected the paths in order");
  if (document.revision > revision_) throw InputError("revision", "is behind that of the backup");
  lastPath_ = document.path;
  ++documents_;
  visit_(document);
}

void BackupReader::takeEnd(std::string_view line) {
  Json const end = readJson(line);
  if (!end.is_object()) throw InputError("", "expected a document, or the end of the backup");
  std::uint64_t const count = number(end, "documents");
  if (count != documents_)
    throw InputError("documents",
                     "the backup is damaged: it holds " + std::to_string(documents_) + ", " + std::to_string(count) +
                         " were written");
  std::string const expected = text(end, "checksum");
  if (expected != checksum_.value().text())
    throw InputError("checksum", "the backup is damaged: the checksum is not that of the lines before");
  isEnded_ = true;
}

}  // namespace Agent
