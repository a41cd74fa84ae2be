// The files of a simulated disk: what is on it for good, and what a loss of power may still take.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Test {

/// The content of one file. It is read as it was written last; beside that stand what is on the disk for good and, in
/// the order written, what is not: pieces that never cross a sector, and changes of the length.
class DiskFile {
 public:
  static constexpr std::size_t kSector = 512;

  DiskFile() = default;
  /// A file that is wholly on the disk.
  explicit DiskFile(std::string bytes) : bytes_(bytes), durable_(std::move(bytes)) {}

  std::string const& bytes() const { return bytes_; }

  void write(std::size_t at, std::string_view bytes);
  void truncate(std::size_t size);
  /// What was written is on the disk from now on.
  void synchronise();
  /// What was written counts as synchronised and is not on the disk: it can be read until the power is lost.
  void forget() { unsynchronised_.clear(); }
  /// The power is lost: every piece not yet on the disk is kept, lost, torn inside, or garbage, each for itself.
  void cut(std::mt19937& random);

  bool operator==(DiskFile const&) const = default;

 private:
  /// Bytes written at a place, or without them a new length.
  struct Change {
    std::size_t at = 0;
    std::optional<std::string> bytes;

    bool operator==(Change const&) const = default;
  };

  static void apply(Change const& change, std::string& content);

  std::string bytes_;
  std::string durable_;
  std::vector<Change> unsynchronised_;
};

/// All files, under absolute names. A plain value: a copy is a disk of its own.
class DiskFiles {
 public:
  /// A file keeps its number when its name goes or leads to another one.
  using Number = int;
  static constexpr Number kNone = 0;

  /// The file that the name leads to, or kNone.
  Number find(std::string const& name) const;
  std::vector<std::string> names() const;
  DiskFile& file(Number number) { return files_.at(number); }
  DiskFile const& file(Number number) const { return files_.at(number); }

  /// A name that is there leads to a new, empty file afterwards.
  Number make(std::string const& name);
  void remove(std::string const& name) { names_[name].unsynchronised.push_back(kNone); }
  /// Whether the name leads to this file, or to none, is on the disk from now on.
  void synchroniseName(std::string const& name);
  /// The same for all names of the folder that `name` stands in.
  void synchroniseFolder(std::string const& name);

  /// The power is lost: names and contents become what the disk makes of them, and all of that is on it for good.
  void cut(std::mt19937& random);
  /// All processes have ended: files without a name go.
  void release();

  bool operator==(DiskFiles const&) const = default;

 private:
  /// What a name leads to on the disk, and what it was made to lead to since, in this order.
  struct Name {
    Number durable = kNone;
    std::vector<Number> unsynchronised;

    Number current() const { return unsynchronised.empty() ? durable : unsynchronised.back(); }
    bool operator==(Name const&) const = default;
  };

  std::map<std::string, Name> names_;
  std::map<Number, DiskFile> files_;
  Number last_ = kNone;
};

}  // namespace Test
