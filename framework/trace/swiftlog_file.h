// Layout of a ring-buffer trace file, shared by its writer and its reader.
#pragma once

#include <array>
#include <cstdint>
#include <type_traits>

namespace Swiftlog {

/// One ring buffer per trace level; level L uses the ring buffer L - 1.
inline constexpr unsigned kRings = 9;

/// "ringlog1" as a little-endian number: a file of another byte order, or of anything else, does not begin with it.
inline constexpr std::uint64_t kMagic = 0x31676F6C676E6972;
inline constexpr std::uint32_t kVersion = 1;

/// Bounds on the two areas, in bytes, so that no file can make its reader ask for absurd amounts of memory.
inline constexpr std::uint32_t kMinAreaSize = 64;
inline constexpr std::uint32_t kMaxAreaSize = 16U << 20;

/// Id of a message whose description found no room. No record carries it.
inline constexpr int kUndescribed = -1;

/// Where a ring buffer's records lie: from `oldest` up to `end`. Both only grow; a position's place in the ring buffer
/// is its remainder by the ring buffer's size. A record is there once `end` has passed it, and gone once `oldest` has.
struct RingHeader {
  std::uint64_t oldest;
  std::uint64_t end;
};

/// Start of the file. The description area follows it, then the ring buffers in order of level.
struct FileHeader {
  std::uint64_t magic;  ///< Written last when a file is begun.
  std::uint32_t version;
  std::uint32_t descriptionSize;  ///< Bytes of the description area.
  std::uint32_t ringSize;         ///< Bytes of each ring buffer.
  std::uint32_t
      descriptionUsed;  ///< Bytes of the description area in use. A description is there once this has passed it.
  std::uint64_t
      droppedRecords;  ///< Records that would have overrun their ring buffer, or whose message has no description.
  std::uint64_t droppedDescriptions;
  std::array<RingHeader, kRings> rings;
};
static_assert(sizeof(FileHeader) == 40 + kRings * 16 && std::is_trivially_copyable_v<FileHeader>);

/// A message's description, followed by its pieces up to `size`. Messages are numbered from 1 in the order of their
/// descriptions.
struct DescriptionHeader {
  std::uint32_t size;  ///< This header included.
  std::int32_t line;
};
static_assert(sizeof(DescriptionHeader) == 8);

/// What a piece of a description is. The source file's name, which comes first, and a literal are followed by their
/// length (32 bits) and bytes.
enum class Piece : char { sourceFile = 'f', literal = 'l', text = 'p', flag = 'b' };

/// A record, followed by its values up to `size`: a text as its length (32 bits) and bytes, a flag as one byte, 0 or 1.
struct RecordHeader {
  std::uint32_t size;  ///< This header included.
  std::int32_t id;
  std::uint64_t sequence;  ///< Counts the messages of the process, over all its files.
  std::uint64_t time;      ///< Nanoseconds since 1970, UTC.
};
static_assert(sizeof(RecordHeader) == 24);

}  // namespace Swiftlog
