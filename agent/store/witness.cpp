// Records in slots that are a page apart: a write that is torn by a power cut leaves the others whole.
#include "agent/store/witness.h"

#include <array>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "agent/document/input_error.h"
#include "agent/document/number.h"
#include "agent/store/sqlite_database.h"

namespace Agent {
namespace {

constexpr int kSlots = 3;
constexpr sqlite3_int64 kSlotDistance = 4096;
constexpr std::size_t kSlotBytes = 512;
constexpr std::string_view kTitle = "enrolix witness 1\n";
constexpr std::string_view kChecksum = "checksum ";

/// A record as lines of text, for a person to read, too.
std::string toText(Witness::Record const& record) {
  std::string text(kTitle);
  auto const add = [&text](std::string_view name, std::string const& value) {
    text.append(name).append(" ").append(value).append("\n");
  };
  add("history", record.history);
  add("commits", std::to_string(record.commits));
  add("revision", std::to_string(record.revision));
  add("documents", std::to_string(record.digest.count));
  add("digest", record.digest.sum.text());
  add("awake", std::to_string(record.awake.count()));
  std::string const checksum = checksumOf(text).text();
  return text.append(kChecksum).append(checksum).append("\n");
}

std::optional<Witness::Record> parse(std::string_view text) {
  std::size_t const behind = text.find(kChecksum);
  if (!text.starts_with(kTitle) || behind == std::string_view::npos) return std::nullopt;
  std::size_t const digits = behind + kChecksum.size();
  if (Checksum::parse(text.substr(digits, 32)) != checksumOf(text.substr(0, behind))) return std::nullopt;
  Witness::Record record;
  std::size_t at = kTitle.size();
  // The value of the next line.
  auto const next = [&] {
    std::size_t const end = text.find('\n', at);
    std::string_view const line = text.substr(at, end - at);
    at = end + 1;
    return line.substr(line.find(' ') + 1);
  };
  record.history = next();
  std::int64_t awake = 0;
  bool isWhole = readNumber(next(), record.commits) && readNumber(next(), record.revision) &&
                 readNumber(next(), record.digest.count);
  auto const sum = Checksum::parse(next());
  isWhole = isWhole && sum && readNumber(next(), awake);
  // Numbers that no agent comes to are no record.
  constexpr auto kGreatest = std::numeric_limits<std::int64_t>::max() / 2;
  isWhole = isWhole && awake >= 0 && awake <= kGreatest && record.commits <= std::uint64_t{kGreatest};
  if (!isWhole) return std::nullopt;
  record.digest.sum = *sum;
  record.awake = std::chrono::milliseconds(awake);
  return record;
}

}  // namespace

void Witness::Close::operator()(sqlite3_file* file) const {
  if (file->pMethods != nullptr) file->pMethods->xClose(file);
  std::free(file);  // NOLINT(cppcoreguidelines-no-malloc): its size is known at run time alone
}

Witness::Witness(SqliteDatabase const& database)
    : vfs_(&database.vfs()), name_(database.name()), path_(std::string(database.path()) + kWitnessEnding) {}
Witness::~Witness() = default;

void Witness::check(int code, char const* what) const {
  if (code == SQLITE_OK) return;
  std::string const text =
      name_ + ": its witness " + printable(path_, path_.size()) + " cannot be " + what + ": " + sqlite3_errstr(code);
  if ((code & 0xff) == SQLITE_FULL) throw StoreFull(text);
  throw StoreError(text);
}

void Witness::open(int flags) {
  // A journal's entry in its folder is synchronised with it, and it belongs to the user that the state file belongs to.
  constexpr int kKind = SQLITE_OPEN_MAIN_JOURNAL;
  auto* const memory = static_cast<sqlite3_file*>(std::calloc(1, static_cast<std::size_t>(vfs_->szOsFile)));
  if (memory == nullptr) throw std::bad_alloc();
  std::unique_ptr<sqlite3_file, Close> file(memory);
  check(vfs_->xOpen(vfs_, path_.c_str(), file.get(), SQLITE_OPEN_READWRITE | kKind | flags, nullptr), "opened");
  file_ = std::move(file);
}

bool Witness::isThere() const {
  int exists = 0;
  check(vfs_->xAccess(vfs_, path_.c_str(), SQLITE_ACCESS_EXISTS, &exists), "found");
  return exists != 0;
}

std::optional<Witness::Record> Witness::read() {
  if (!isThere()) return std::nullopt;
  if (!file_) open(0);
  std::optional<Record> newest;
  for (int slot = 0; slot < kSlots; ++slot) {
    std::array<char, kSlotBytes> bytes{};
    int const code =
        file_->pMethods->xRead(file_.get(), bytes.data(), static_cast<int>(bytes.size()), slot * kSlotDistance);
    if (code != SQLITE_IOERR_SHORT_READ) check(code, "read");
    auto const record = parse({bytes.data(), bytes.size()});
    if (!record) continue;
    if (newest && std::pair(newest->commits, newest->awake) >= std::pair(record->commits, record->awake)) continue;
    newest = record;
    lastSlot_ = slot;
  }
  return newest;
}

void Witness::writeSlot(int slot, Record const& record) {
  std::string bytes = toText(record);
  bytes.resize(kSlotBytes, '\n');
  check(file_->pMethods->xWrite(file_.get(), bytes.data(), static_cast<int>(bytes.size()), slot * kSlotDistance),
        "written");
  lastSlot_ = slot;
}

void Witness::begin(Record const& record) {
  auto const known = read();
  if (known && known->history == record.history) {
    // The newest record stays until this one is safe.
    safeSlot_ = (lastSlot_ + 1) % kSlots;
  } else {
    file_.reset();
    if (vfs_->xDelete(vfs_, path_.c_str(), 1) == SQLITE_IOERR_DELETE) check(SQLITE_IOERR_DELETE, "replaced");
    open(SQLITE_OPEN_CREATE);
    safeSlot_ = 0;
    // All of it is there from the beginning: writing it later takes no room.
    std::string const blank(static_cast<std::size_t>(kSlots * kSlotDistance), '\n');
    check(file_->pMethods->xWrite(file_.get(), blank.data(), static_cast<int>(blank.size()), 0), "written");
  }
  writeSlot(safeSlot_, record);
  check(file_->pMethods->xSync(file_.get(), SQLITE_SYNC_NORMAL), "synchronised");
}

void Witness::write(Record const& record) {
  int slot = (lastSlot_ + 1) % kSlots;
  if (slot == safeSlot_) slot = (slot + 1) % kSlots;
  writeSlot(slot, record);
}

void Witness::remove() noexcept {
  file_.reset();
  vfs_->xDelete(vfs_, path_.c_str(), 0);
}

}  // namespace Agent
