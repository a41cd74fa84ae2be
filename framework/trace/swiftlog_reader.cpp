// Reading of the ring-buffer trace file, which checks everything before it prints anything.
#include "framework/trace/swiftlog_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "framework/text/one_line.h"
#include "framework/trace/swiftlog_file.h"

namespace Swiftlog {

namespace {

/// What is wrong with the contents of a file.
struct Damage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Takes numbers and texts off the front of some bytes, and never more than there are.
class Bytes {
 public:
  explicit Bytes(std::string_view rest) : rest_(rest) {}

  bool empty() const { return rest_.empty(); }
  template <class T>
  T number() {
    T value{};
    std::memcpy(&value, take(sizeof value).data(), sizeof value);
    return value;
  }
  std::string_view text() { return take(number<std::uint32_t>()); }
  std::string_view take(std::size_t count) {
    if (count > rest_.size()) throw Damage("damaged: a length leads beyond its bounds");
    std::string_view const taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
  }

 private:
  std::string_view rest_;
};

/// A regular file open for reading.
class File {
 public:
  explicit File(std::filesystem::path const& path)
      : path_(path.string()), descriptor_(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    if (descriptor_ < 0) fail();
  }
  File(File const&) = delete;
  File& operator=(File const&) = delete;
  ~File() { close(descriptor_); }

  std::uint64_t size() const {
    struct stat status {};
    if (fstat(descriptor_, &status) != 0) fail();
    if (!S_ISREG(status.st_mode)) throw Damage("not a regular file");
    return static_cast<std::uint64_t>(status.st_size);
  }
  std::string read(std::uint64_t offset, std::size_t count) const {
    std::string bytes(count, '\0');
    for (std::size_t done = 0; done < count;) {
      ssize_t const got = pread(descriptor_, &bytes[done], count - done, static_cast<off_t>(offset + done));
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) fail();
      if (got == 0) throw Damage("damaged: the file is too short");
      done += static_cast<std::size_t>(got);
    }
    return bytes;
  }

 private:
  [[noreturn]] void fail() const { throw std::system_error(errno, std::generic_category(), path_); }

  std::string path_;
  int descriptor_;
};

FileHeader readHeader(File const& file, std::uint64_t fileSize) {
  if (fileSize < sizeof(FileHeader)) throw Damage("not a ring trace file");
  FileHeader header{};
  std::memcpy(&header, file.read(0, sizeof header).data(), sizeof header);
  if (header.magic != kMagic) throw Damage("not a ring trace file");
  if (header.version != kVersion) throw Damage("ring trace file of an unknown version");
  auto const good = [](std::uint32_t size) { return size >= kMinAreaSize && size <= kMaxAreaSize; };
  if (!good(header.descriptionSize) || !good(header.ringSize) || header.descriptionUsed > header.descriptionSize)
    throw Damage("damaged: impossible sizes");
  if (fileSize != sizeof(FileHeader) + header.descriptionSize + std::uint64_t{kRings} * header.ringSize)
    throw Damage("damaged: the file's size does not match its header");
  return header;
}

/// One message as it was described; the pieces are part of the description area.
struct Description {
  std::int32_t line;
  std::string_view pieces;
};

/// Passes the texts of a message, literals and values, to `print`, in order.
template <class Print>
void walkRecord(Description const& description, std::string_view values, Print print) {
  Bytes rest(values);
  for (Bytes pieces(description.pieces); !pieces.empty();) {
    switch (pieces.number<Piece>()) {
      case Piece::literal:
        print(pieces.text());
        break;
      case Piece::text:
        print(rest.text());
        break;
      case Piece::flag: {
        auto const flag = rest.number<unsigned char>();
        if (flag > 1) throw Damage("damaged: a flag that is neither 0 nor 1");
        print(std::string_view(flag == 1 ? "1" : "0"));
        break;
      }
      default:
        throw Damage("damaged: unknown piece of a description");
    }
  }
  if (!rest.empty()) throw Damage("damaged: a record longer than its description");
}

/// The descriptions in the order of their ids. Their pieces are checked with the records that use them.
std::vector<Description> descriptions(std::string_view area) {
  std::vector<Description> all;
  for (Bytes rest(area); !rest.empty();) {
    auto const header = rest.number<DescriptionHeader>();
    if (header.size < sizeof header) throw Damage("damaged: impossible size of a description");
    std::string_view const body = rest.take(header.size - sizeof header);
    Bytes source(body);
    if (source.number<Piece>() != Piece::sourceFile) throw Damage("damaged: a description without its source file");
    std::size_t const name = source.text().size();
    all.push_back({header.line, body.substr(sizeof(Piece) + sizeof(std::uint32_t) + name)});
  }
  return all;
}

/// The records of one level, oldest first.
class Ring {
 public:
  Ring(unsigned level, std::string bytes) : level_(level), bytes_(std::move(bytes)), rest_(bytes_) { next(); }
  Ring(Ring const&) = delete;
  Ring& operator=(Ring const&) = delete;

  unsigned level() const { return level_; }
  bool atEnd() const { return !record_; }
  RecordHeader const& record() const { return *record_; }
  std::string_view values() const { return values_; }

  void next() {
    if (rest_.empty()) {
      record_.reset();
      return;
    }
    auto const header = rest_.number<RecordHeader>();
    if (header.size < sizeof header) throw Damage("damaged: impossible size of a record");
    if (record_ && header.sequence <= record_->sequence) throw Damage("damaged: records out of sequence");
    values_ = rest_.take(header.size - sizeof header);
    record_ = header;
  }
  void rewind() {
    record_.reset();
    rest_ = Bytes(bytes_);
    next();
  }

 private:
  unsigned level_;
  std::string bytes_;
  Bytes rest_;
  std::optional<RecordHeader> record_;
  std::string_view values_;
};

/// The bytes of a ring buffer between two positions, without the break where it wraps around.
std::string unwrapped(std::string const& ring, std::uint64_t oldest, std::uint64_t end) {
  std::size_t const at = oldest % ring.size();
  std::size_t const count = end - oldest;
  return ring.substr(at, count) + ring.substr(0, count - std::min(count, ring.size() - at));
}

void printTime(std::ostream& out, std::uint64_t time) {
  auto const seconds = static_cast<std::time_t>(time / 1'000'000'000U);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::array<char, 48> text{};
  std::size_t const used = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(text.data() + used, text.size() - used, ".%06uZ", static_cast<unsigned>(time % 1'000'000'000U / 1000U));
  out << text.data();
}

/// All that is read of a file.
struct Contents {
  FileHeader header;
  std::string descriptionArea;
  std::vector<std::unique_ptr<Ring>> rings;
};

Contents readContents(File const& file) {
  std::uint64_t const size = file.size();
  // The file may be written to meanwhile. So the ends are read before the records, and the oldest records that are
  // still there after them; the descriptions come last, when all that the records need are there.
  FileHeader const before = readHeader(file, size);
  std::array<std::string, kRings> bytes;
  for (std::size_t i = 0; i < kRings; ++i)
    bytes[i] =
        file.read(sizeof(FileHeader) + before.descriptionSize + i * std::uint64_t{before.ringSize}, before.ringSize);

  Contents contents{readHeader(file, size), {}, {}};
  for (unsigned i = 0; i < kRings; ++i) {
    RingHeader const& after = contents.header.rings[i];
    std::uint64_t const end = std::max(before.rings[i].end, after.oldest);
    if (after.oldest > after.end || end - after.oldest > before.ringSize)
      throw Damage("damaged: impossible position in a ring buffer");
    contents.rings.push_back(std::make_unique<Ring>(i + 1, unwrapped(bytes[i], after.oldest, end)));
  }
  contents.descriptionArea = file.read(sizeof(FileHeader), contents.header.descriptionUsed);
  return contents;
}

void print(Contents const& contents, std::ostream& out) {
  std::vector<Description> const described = descriptions(contents.descriptionArea);
  auto const descriptionOf = [&described](RecordHeader const& record) -> Description const& {
    if (record.id < 1 || static_cast<std::size_t>(record.id) > described.size())
      throw Damage("damaged: a record of an unknown message");
    return described[static_cast<std::size_t>(record.id) - 1];
  };
  for (auto const& ring : contents.rings) {
    for (; !ring->atEnd(); ring->next())
      walkRecord(descriptionOf(ring->record()), ring->values(), [](std::string_view) {});
    ring->rewind();
  }

  auto const earlier = [](auto const& a, auto const& b) {
    return !a->atEnd() && (b->atEnd() || a->record().sequence < b->record().sequence);
  };
  for (;;) {
    Ring& ring = **std::min_element(contents.rings.begin(), contents.rings.end(), earlier);
    if (ring.atEnd()) break;
    Description const& description = descriptionOf(ring.record());
    printTime(out, ring.record().time);
    out << ' ' << ring.level() << ' ' << description.line << ' ';
    walkRecord(description, ring.values(), [&out](std::string_view text) { Nox::writeOneLine(out, text); });
    out << '\n';
    ring.next();
  }

  FileHeader const& header = contents.header;
  if (header.droppedRecords != 0 || header.droppedDescriptions != 0)
    out << "(records dropped: " << header.droppedRecords
        << ", messages without room for their description: " << header.droppedDescriptions << ")\n";
}

}  // namespace

void printRingFile(std::filesystem::path const& path, std::ostream& out) {
  try {
    print(readContents(File(path)), out);
  } catch (Damage const& damage) {
    throw std::runtime_error(path.string() + ": " + damage.what());
  }
}

}  // namespace Swiftlog
