// Writing of the ring-buffer trace file.
#include "framework/trace/swiftlog.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <system_error>
#include <utility>

#include "framework/memory/assertion.h"

namespace Swiftlog {

TraceFile* theTraceFile = nullptr;

namespace {

/// Messages of the process so far, over all its trace files.
std::uint64_t lastSequence = 0;

/// Stores what makes everything written before it visible: neither compiler nor processor moves an earlier store behind
/// it.
template <class T>
void commit(T& place, T value) {
  std::atomic_ref<T>(place).store(value, std::memory_order_release);
}

std::uint64_t now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U + static_cast<std::uint64_t>(time.tv_nsec);
}

bool sizeIsGood(std::uint32_t size) { return size >= kMinAreaSize && size <= kMaxAreaSize; }

/// A descriptor that is closed unless it is taken.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  int number() const { return number_; }
  int take() { return std::exchange(number_, -1); }

 private:
  int number_;
};

}  // namespace

// Ring buffers.

void RingBuf::attach(RingHeader* header, unsigned char* bytes, std::uint32_t size) {
  header_ = header;
  bytes_ = bytes;
  size_ = size;
  record_ = std::make_unique_for_overwrite<unsigned char[]>(size);
}

void RingBuf::startMsg(TraceFile* file, int id) {
  RecordHeader const header{0, id, ++lastSequence, now()};
  file_ = file;
  used_ = 0;
  overrun_ = id <= 0 || id > file->messages();
  write(&header, sizeof header);
}

void RingBuf::endMsg() {
  NOX_ASSERT(file_ != nullptr, "endMsg without startMsg");
  TraceFile* const file = std::exchange(file_, nullptr);
  if (overrun_) {
    ++file->header_->droppedRecords;
    return;
  }
  auto const size = static_cast<std::uint32_t>(used_);
  std::memcpy(record_.get(), &size, sizeof size);

  while (end_ - oldest_ + size > size_) discardOldest();
  commit(header_->oldest, oldest_);
  std::size_t const at = end_ % size_;
  std::size_t const first = std::min<std::size_t>(size, size_ - at);
  // Nothing of the record may be stored before what it overwrites is given up.
  std::atomic_thread_fence(std::memory_order_release);
  std::memcpy(bytes_ + at, record_.get(), first);
  std::memcpy(bytes_, &record_[first], size - first);
  end_ += size;
  commit(header_->end, end_);
}

void RingBuf::discardOldest() {
  std::uint32_t size = 0;
  std::array<unsigned char, sizeof size> bytes{};
  std::size_t const at = oldest_ % size_;
  std::size_t const first = std::min<std::size_t>(sizeof size, size_ - at);
  std::memcpy(bytes.data(), bytes_ + at, first);
  std::memcpy(bytes.data() + first, bytes_, sizeof size - first);
  std::memcpy(&size, bytes.data(), sizeof size);
  // A size that cannot be means that another process wrote to the file; then everything old is given up.
  bool const sound = size >= sizeof(RecordHeader) && size <= end_ - oldest_;
  oldest_ = sound ? oldest_ + size : end_;
}

// The file.

std::unique_ptr<TraceFile> TraceFile::open(std::filesystem::path const& path, Sizes sizes) {
  auto const fail = [&path](int error) { throw std::system_error(error, std::generic_category(), path.string()); };
  if (!sizeIsGood(sizes.descriptions) || !sizeIsGood(sizes.ring)) fail(EINVAL);

  Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0644));
  if (file.number() < 0) fail(errno);
  struct stat status {};
  if (fstat(file.number(), &status) != 0) fail(errno);
  if (!S_ISREG(status.st_mode)) fail(EINVAL);
  // The lock keeps two writers apart: shortening a file that a process has mapped would kill the process.
  if (flock(file.number(), LOCK_EX | LOCK_NB) != 0) fail(errno == EWOULDBLOCK ? EBUSY : errno);

  // All room is claimed now, because a full disk met later, while writing to the mapping, could only kill the process.
  std::size_t const size = sizeof(FileHeader) + sizes.descriptions + std::size_t{kRings} * sizes.ring;
  if (ftruncate(file.number(), 0) != 0) fail(errno);
  if (int const error = posix_fallocate(file.number(), 0, static_cast<off_t>(size)); error != 0) fail(error);
  void* const start = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.number(), 0);
  if (start == MAP_FAILED) fail(errno);
  return std::unique_ptr<TraceFile>(new TraceFile(file.take(), start, sizes));
}

TraceFile::TraceFile(int descriptor, void* start, Sizes sizes)
    : descriptor_(descriptor),
      header_(new (start) FileHeader{}),
      descriptions_(static_cast<unsigned char*>(start) + sizeof(FileHeader)),
      sizes_(sizes) {
  header_->version = kVersion;
  header_->descriptionSize = sizes.descriptions;
  header_->ringSize = sizes.ring;
  unsigned char* bytes = descriptions_ + sizes.descriptions;
  for (unsigned i = 0; i < kRings; ++i, bytes += sizes.ring) rings_[i].attach(&header_->rings[i], bytes, sizes.ring);
  commit(header_->magic, kMagic);
}

TraceFile::~TraceFile() {
  if (theTraceFile == this) theTraceFile = nullptr;
  for (int* const cell : cells_) *cell = 0;
  munmap(header_, sizeof(FileHeader) + sizes_.descriptions + std::size_t{kRings} * sizes_.ring);
  close(descriptor_);
}

int TraceFile::newDescription(std::string_view bytes) {
  if (bytes.size() > sizes_.descriptions - descriptionUsed_) {
    ++header_->droppedDescriptions;
    return kUndescribed;
  }
  std::memcpy(descriptions_ + descriptionUsed_, bytes.data(), bytes.size());
  descriptionUsed_ += static_cast<std::uint32_t>(bytes.size());
  commit(header_->descriptionUsed, descriptionUsed_);
  return ++messages_;
}

// Descriptions.

void MsgFormatString::put(char const* code) {
  std::string_view const given = code;
  NOX_ASSERT(given == "p" || given == "b", "format code of a trace value is \"p\" or \"b\"");
  code_ = given == "p" ? Piece::text : Piece::flag;
}

MsgDesc::MsgDesc(TraceFile* traceFile, char const* file, int line) : file_(traceFile) {
  DescriptionHeader const header{0, line};
  bytes_.append(reinterpret_cast<char const*>(&header), sizeof header);
  append(Piece::sourceFile, file);
}

MsgDesc& MsgDesc::operator<<(char const* literal) {
  append(Piece::literal, literal);
  return *this;
}

MsgDesc& MsgDesc::operator<<(Varg value) {
  bytes_.push_back(static_cast<char>(value.code()));
  return *this;
}

void MsgDesc::finish() {
  auto const size = static_cast<std::uint32_t>(bytes_.size());
  bytes_.replace(0, sizeof size, reinterpret_cast<char const*>(&size), sizeof size);
  id_ = file_->newDescription(bytes_);
}

void MsgDesc::append(Piece piece, std::string_view text) {
  auto const length = static_cast<std::uint32_t>(text.size());
  bytes_.push_back(static_cast<char>(piece));
  bytes_.append(reinterpret_cast<char const*>(&length), sizeof length).append(text);
}

}  // namespace Swiftlog
