// The ring-buffer trace: messages described once, then kept as compact binary records in a memory-mapped file.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "framework/memory/export.h"
#include "framework/trace/swiftlog_file.h"

/// One thread writes: the one that delivers notifications. Nothing here is locked.
namespace Swiftlog {

class TraceFile;

/// The trace file of the process, or null while ring-buffer tracing is off. Not owned: the code that opened the file
/// sets this, and closing the file sets it back to null. To move on to another file, close this one first: the message
/// ids of the statements belong to one file.
extern NOX_EXPORT TraceFile* theTraceFile;

/// The records of one trace level. The newest overwrite the oldest.
class NOX_EXPORT RingBuf {
 public:
  /// Begins a record of the message `id` of `file`, which this ring buffer belongs to. The values follow in the order
  /// of the description. One record at a time: beginning another abandons what was not ended.
  void startMsg(TraceFile* file, int id);
  /// Appends bytes at the write position. What would overrun the ring buffer is noticed, and `endMsg` drops the record.
  void write(void const* bytes, std::size_t count) {
    if (overrun_ || count > size_ - used_) {
      overrun_ = true;
      return;
    }
    if (count != 0) std::memcpy(&record_[used_], bytes, count);  // an empty text may be at no address
    used_ += count;
  }
  /// Makes the record part of the file, by one last store, or drops and counts it.
  void endMsg();

 private:
  friend class TraceFile;
  void attach(RingHeader* header, unsigned char* bytes, std::uint32_t size);
  void discardOldest();

  RingHeader* header_ = nullptr;
  unsigned char* bytes_ = nullptr;
  std::uint64_t size_ = 0;
  /// Copies of the header's positions, so that another process that writes to the file cannot lead this one astray.
  std::uint64_t oldest_ = 0;
  std::uint64_t end_ = 0;

  /// The record being made waits here, so that nothing old goes for one that is dropped.
  std::unique_ptr<unsigned char[]> record_;
  std::size_t used_ = 0;
  bool overrun_ = false;
  TraceFile* file_ = nullptr;
};

/// Appends a text value, which may hold any bytes.
inline void put(RingBuf* ring, std::string_view text) {
  // A text whose length takes more than 32 bits overruns every ring buffer, so the wrong length never becomes part of
  // the file.
  auto const length = static_cast<std::uint32_t>(text.size());
  ring->write(&length, sizeof length);
  ring->write(text.data(), text.size());
}
/// Appends a text value; null counts as empty.
inline void put(RingBuf* ring, char const* text) { put(ring, std::string_view(text != nullptr ? text : "")); }
/// Appends a boolean value.
template <std::same_as<bool> Flag>
void put(RingBuf* ring, Flag flag) {
  auto const byte = static_cast<unsigned char>(flag ? 1 : 0);
  ring->write(&byte, 1);
}

/// A memory-mapped file with the descriptions of messages and one ring buffer per level. What was traced is in the file
/// at once and stays there when the process dies.
class NOX_EXPORT TraceFile {
 public:
  /// Sizes in bytes, each between kMinAreaSize and kMaxAreaSize.
  struct Sizes {
    std::uint32_t descriptions = 256U << 10;
    std::uint32_t ring = 1U << 20;
  };

  /// Begins a trace file at `path`; what a file there held is gone. Does not make it the file of the process.
  /// Throws std::system_error with the path: not a regular file, no room, in use as a trace file, a size out of bounds
  /// (EINVAL).
  static std::unique_ptr<TraceFile> open(std::filesystem::path const& path, Sizes sizes);
  static std::unique_ptr<TraceFile> open(std::filesystem::path const& path) { return open(path, Sizes{}); }
  TraceFile(TraceFile const&) = delete;
  TraceFile& operator=(TraceFile const&) = delete;
  /// Closes the file. Every registered cell becomes 0, and `theTraceFile` null if it was this one.
  ~TraceFile();

  /// The ring buffer `index`, counted from 0: trace level L has L - 1.
  RingBuf* ringBuf(unsigned index) { return &rings_[index]; }
  /// Registers the cell of a statement that holds an id of this file. The cell must outlive the file.
  void msgIdArrIs(int* cell) { cells_.push_back(cell); }

  /// Number of described messages, which is also the highest id.
  int messages() const { return messages_; }
  std::uint64_t droppedRecords() const { return header_->droppedRecords; }
  std::uint64_t droppedDescriptions() const { return header_->droppedDescriptions; }

 private:
  friend class MsgDesc;
  friend class RingBuf;

  TraceFile(int descriptor, void* start, Sizes sizes);
  int newDescription(std::string_view bytes);

  int descriptor_;
  FileHeader* header_;
  unsigned char* descriptions_;
  Sizes sizes_;
  std::uint32_t descriptionUsed_ = 0;
  int messages_ = 0;
  std::array<RingBuf, kRings> rings_;
  std::vector<int*> cells_;
};

/// The format code of one value: "p" for a text, "b" for a boolean.
class NOX_EXPORT MsgFormatString {
 public:
  /// Sets the code; any other than the two is a broken invariant.
  void put(char const* code);
  Piece code() const { return code_; }

 private:
  Piece code_ = Piece::text;
};

/// Place of a value in a description.
class Varg {
 public:
  explicit Varg(MsgFormatString const& format) : code_(format.code()) {}
  Piece code() const { return code_; }

 private:
  Piece code_;
};

/// The description of one message, made once: where it stands, its literal pieces and its values, in order.
class NOX_EXPORT MsgDesc {
 public:
  MsgDesc(TraceFile* traceFile, char const* file, int line);
  MsgDesc& operator<<(char const* literal);
  MsgDesc& operator<<(Varg value);
  /// Writes the description into the file, which gives it its id.
  void finish();
  /// The id, from 1; kUndescribed if the file had no room left. 0 before `finish`.
  int id() const { return id_; }

 private:
  void append(Piece piece, std::string_view text);

  TraceFile* file_;
  std::string bytes_;
  int id_ = 0;
};

}  // namespace Swiftlog
