// SQLite's calls, the faults that they meet, and what the files make of the rest.
#include "support/faulty_disk.h"

#include <algorithm>
#include <cassert>
#include <filesystem>
#include <memory>
#include <new>
#include <random>
#include <utility>

namespace Test {
namespace {

constexpr char const* kCalls[] = {"open", "create", "read", "write", "truncate", "sync", "remove", "access", "size"};
constexpr char const* kRoles[] = {"main", "log", "journal", "witness", "temporary"};

std::string fullName(std::string const& name) {
  return (std::filesystem::path("/") / name).lexically_normal().string();
}

FileRole roleOf(std::string_view name) {
  if (name.ends_with("-wal")) return FileRole::log;
  if (name.ends_with("-journal")) return FileRole::journal;
  if (name.ends_with("-witness")) return FileRole::witness;
  return FileRole::main;
}

bool isEnd(Effect effect) { return effect == Effect::kill || effect == Effect::powerCut; }

bool isMissingRoom(int error) { return error == ENOSPC || error == EDQUOT || error == EFBIG; }

bool changes(CallKind call) {
  return call == CallKind::write || call == CallKind::truncate || call == CallKind::sync || call == CallKind::remove;
}

// Some errors make the system's own file system say that the file is damaged.
int readCode(int error) {
  return error == EIO || error == ERANGE || error == ENXIO ? SQLITE_IOERR_CORRUPTFS : SQLITE_IOERR_READ;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, Call const& call) {
  return out << kCalls[static_cast<int>(call.kind)] << " of " << kRoles[static_cast<int>(call.role)];
}

/// An open file, in memory of SQLite's.
struct FaultyDisk::Handle : sqlite3_file {
  FaultyDisk* disk = nullptr;
  int life = 0;
  std::string name;
  DiskFiles::Number file = DiskFiles::kNone;
  FileRole role = FileRole::main;
  bool syncsFolder = false;
  bool goesWithClose = false;
  int lock = SQLITE_LOCK_NONE;
  int lastError = 0;

  static Handle& of(sqlite3_file* file) { return *static_cast<Handle*>(file); }
};

FaultyDisk::FaultyDisk() {
  static int made = 0;
  name_ = "faulty-disk-" + std::to_string(++made);
  vfs_.iVersion = 1;
  vfs_.szOsFile = sizeof(Handle);
  vfs_.mxPathname = 512;
  vfs_.zName = name_.c_str();
  vfs_.pAppData = this;
  vfs_.xOpen = [](sqlite3_vfs* vfs, char const* name, sqlite3_file* file, int flags, int* given) {
    if (given) *given = flags;
    return of(vfs).open(name, file, flags);
  };
  vfs_.xDelete = [](sqlite3_vfs* vfs, char const* name, int syncsFolder) {
    return of(vfs).remove(fullName(name), syncsFolder != 0);
  };
  vfs_.xAccess = [](sqlite3_vfs* vfs, char const* name, int what, int* answer) {
    return of(vfs).access(fullName(name), what, *answer);
  };
  vfs_.xFullPathname = [](sqlite3_vfs*, char const* name, int size, char* full) {
    std::string const text = fullName(name);
    if (text.size() >= static_cast<std::size_t>(size)) return SQLITE_CANTOPEN;
    std::copy_n(text.c_str(), text.size() + 1, full);
    return SQLITE_OK;
  };
  vfs_.xRandomness = [](sqlite3_vfs*, int size, char* bytes) {
    std::fill_n(bytes, size, '\0');
    return size;
  };
  vfs_.xSleep = [](sqlite3_vfs*, int microseconds) { return microseconds; };
  vfs_.xCurrentTime = [](sqlite3_vfs*, double* days) {
    *days = 2460000.5;
    return SQLITE_OK;
  };
  vfs_.xGetLastError = [](sqlite3_vfs* vfs, int, char*) { return of(vfs).lastError_; };
  sqlite3_vfs_register(&vfs_, 0);
}

FaultyDisk::~FaultyDisk() {
  assert(handles_.empty());
  sqlite3_vfs_unregister(&vfs_);
}

sqlite3_io_methods const& FaultyDisk::methods() {
  static sqlite3_io_methods const made = [] {
    sqlite3_io_methods methods{};
    methods.iVersion = 1;
    methods.xClose = [](sqlite3_file* file) {
      Handle::of(file).disk->close(Handle::of(file));
      return SQLITE_OK;
    };
    methods.xRead = [](sqlite3_file* file, void* buffer, int size, sqlite3_int64 at) {
      return Handle::of(file).disk->read(
          Handle::of(file), static_cast<char*>(buffer), static_cast<std::size_t>(size), static_cast<std::size_t>(at));
    };
    methods.xWrite = [](sqlite3_file* file, void const* bytes, int size, sqlite3_int64 at) {
      std::string_view const text(static_cast<char const*>(bytes), static_cast<std::size_t>(size));
      return Handle::of(file).disk->write(Handle::of(file), text, static_cast<std::size_t>(at));
    };
    methods.xTruncate = [](sqlite3_file* file, sqlite3_int64 size) {
      return Handle::of(file).disk->truncate(Handle::of(file), static_cast<std::size_t>(size));
    };
    methods.xSync = [](sqlite3_file* file, int) { return Handle::of(file).disk->sync(Handle::of(file)); };
    methods.xFileSize = [](sqlite3_file* file, sqlite3_int64* size) {
      return Handle::of(file).disk->size(Handle::of(file), *size);
    };
    methods.xLock = [](sqlite3_file* file, int level) { return Handle::of(file).disk->lock(Handle::of(file), level); };
    methods.xUnlock = [](sqlite3_file* file, int level) {
      Handle::of(file).lock = std::min(Handle::of(file).lock, level);
      return SQLITE_OK;
    };
    methods.xCheckReservedLock = [](sqlite3_file* file, int* isReserved) {
      Handle const& handle = Handle::of(file);
      *isReserved = std::max(handle.lock, handle.disk->otherLock(handle)) >= SQLITE_LOCK_RESERVED ? 1 : 0;
      return handle.disk->isGone(handle) ? SQLITE_IOERR : SQLITE_OK;
    };
    methods.xFileControl = [](sqlite3_file* file, int operation, void* argument) {
      if (operation != SQLITE_FCNTL_LAST_ERRNO) return SQLITE_NOTFOUND;
      *static_cast<int*>(argument) = Handle::of(file).lastError;
      return SQLITE_OK;
    };
    methods.xSectorSize = [](sqlite3_file*) { return 4096; };
    methods.xDeviceCharacteristics = [](sqlite3_file*) { return SQLITE_IOCAP_POWERSAFE_OVERWRITE; };
    return methods;
  }();
  return made;
}

void FaultyDisk::plan(Fault const& fault) {
  if (isEnd(fault.effect) && fault.after == 0 && !fault.call && !fault.role) {
    end_ = fault;
    ++fired_;
  } else {
    faults_.push_back({fault, fault.after});
  }
}

void FaultyDisk::clearFaults() {
  faults_.clear();
  fired_ = 0;
}

void FaultyDisk::kill(std::size_t after) { plan({.effect = Effect::kill, .after = after}); }

void FaultyDisk::powerCut(std::uint32_t seed, std::size_t after) {
  plan({.effect = Effect::powerCut, .after = after, .seed = seed});
}

void FaultyDisk::restart() {
  if (end_ && end_->effect == Effect::powerCut) {
    std::mt19937 random(end_->seed);
    files_.cut(random);
  }
  files_.release();
  std::erase_if(faults_, [](Planned const& planned) { return isEnd(planned.fault.effect); });
  end_.reset();
  ++life_;
}

void FaultyDisk::restoreTo(Snapshot const& snapshot) {
  files_ = snapshot;
  calls_.clear();
  clearFaults();
  end_.reset();
  ++life_;
}

std::string const& FaultyDisk::bytes(std::string const& name) const {
  return files_.file(files_.find(fullName(name))).bytes();
}

void FaultyDisk::setBytes(std::string const& name, std::string bytes) {
  std::string const full = fullName(name);
  DiskFiles::Number const found = files_.find(full);
  files_.file(found != DiskFiles::kNone ? found : files_.make(full)) = DiskFile(std::move(bytes));
  files_.synchroniseName(full);
}

void FaultyDisk::remove(std::string const& name) {
  files_.remove(fullName(name));
  files_.synchroniseName(fullName(name));
}

bool FaultyDisk::harms(Fault const& fault, Call call) {
  if (fault.role && *fault.role != call.role) return false;
  if (fault.effect == Effect::shorten && call.kind != CallKind::write) return false;
  if (fault.effect == Effect::lie && !changes(call.kind)) return false;
  if (fault.call) return *fault.call == call.kind;
  return fault.effect != Effect::fail || !isMissingRoom(fault.error) || call.kind == CallKind::write ||
         call.kind == CallKind::create;
}

bool FaultyDisk::isGone(Handle const& handle) const { return isDown() || handle.life != life_; }

FaultyDisk::Verdict FaultyDisk::judge(Call call, Handle const* handle) {
  if (isDown() || (handle && isGone(*handle))) return {SQLITE_IOERR, std::nullopt};
  calls_.push_back(call);
  std::optional<std::size_t> met;
  for (std::size_t n = 0; n < faults_.size(); ++n) {
    if (!harms(faults_[n].fault, call)) continue;
    if (faults_[n].left > 0)
      --faults_[n].left;
    else if (!met)
      met = n;
  }
  if (!met) return {};
  Fault const fault = faults_[*met].fault;
  if (!fault.persists) faults_.erase(faults_.begin() + static_cast<std::ptrdiff_t>(*met));
  ++fired_;
  switch (fault.effect) {
    case Effect::kill:
    case Effect::powerCut:
      end_ = fault;
      calls_.pop_back();
      return {SQLITE_IOERR, std::nullopt};
    case Effect::lie:
      return {SQLITE_OK, std::nullopt};
    case Effect::slow:
      if (fault.run) fault.run();
      // It may have ended the process.
      return isDown() ? Verdict{SQLITE_IOERR, std::nullopt} : Verdict{};
    default:
      return {std::nullopt, fault};
  }
}

int FaultyDisk::fail(int error, int code, Handle* handle) {
  lastError_ = error;
  if (handle) handle->lastError = error;
  return code;
}

int FaultyDisk::open(char const* name, sqlite3_file* file, int flags) {
  // Only a file with methods is closed.
  file->pMethods = nullptr;
  std::string const full = name ? fullName(name) : "/temporary-" + std::to_string(++temporaries_);
  FileRole const role = name ? roleOf(full) : FileRole::temporary;
  DiskFiles::Number number = files_.find(full);
  bool const isMade = number == DiskFiles::kNone && (flags & SQLITE_OPEN_CREATE) != 0;
  Verdict const verdict = judge({isMade ? CallKind::create : CallKind::open, role});
  if (verdict.answer) return *verdict.answer;
  // When a creation fails, the system's own file system tries to read the file, and tells what that failed with.
  if (verdict.fault) return fail(isMade ? ENOENT : verdict.fault->error, SQLITE_CANTOPEN);
  if (number != DiskFiles::kNone && (flags & SQLITE_OPEN_EXCLUSIVE) != 0) return fail(EEXIST, SQLITE_CANTOPEN);
  if (isMade) number = files_.make(full);
  if (number == DiskFiles::kNone) return fail(ENOENT, SQLITE_CANTOPEN);

  auto* const handle = new (file) Handle;
  handle->pMethods = &methods();
  handle->disk = this;
  handle->life = life_;
  handle->name = full;
  handle->file = number;
  handle->role = role;
  constexpr int kJournals = SQLITE_OPEN_SUPER_JOURNAL | SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_WAL;
  handle->syncsFolder = (flags & SQLITE_OPEN_CREATE) != 0 && (flags & kJournals) != 0;
  handle->goesWithClose = (flags & SQLITE_OPEN_DELETEONCLOSE) != 0;
  handles_.push_back(handle);
  return SQLITE_OK;
}

void FaultyDisk::close(Handle& handle) {
  if (handle.goesWithClose && !isGone(handle)) files_.remove(handle.name);
  std::erase(handles_, &handle);
  std::destroy_at(&handle);
}

int FaultyDisk::read(Handle& handle, char* buffer, std::size_t size, std::size_t at) {
  Verdict const verdict = judge({CallKind::read, handle.role}, &handle);
  if (verdict.answer) return *verdict.answer;
  if (verdict.fault) return fail(verdict.fault->error, readCode(verdict.fault->error), &handle);
  std::string const& bytes = files_.file(handle.file).bytes();
  std::size_t const there = at < bytes.size() ? std::min(size, bytes.size() - at) : 0;
  std::copy_n(bytes.data() + (there > 0 ? at : 0), there, buffer);
  std::fill(buffer + there, buffer + size, '\0');
  if (there == size) return SQLITE_OK;
  handle.lastError = 0;
  return SQLITE_IOERR_SHORT_READ;
}

int FaultyDisk::write(Handle& handle, std::string_view bytes, std::size_t at) {
  Verdict const verdict = judge({CallKind::write, handle.role}, &handle);
  if (verdict.answer) return *verdict.answer;
  if (!verdict.fault) {
    files_.file(handle.file).write(at, bytes);
    return SQLITE_OK;
  }
  if (verdict.fault->effect == Effect::shorten) files_.file(handle.file).write(at, bytes.substr(0, bytes.size() / 2));
  int const error = verdict.fault->error;
  if (error != ENOSPC) return fail(error, SQLITE_IOERR_WRITE, &handle);
  fail(error, SQLITE_FULL);
  handle.lastError = 0;
  return SQLITE_FULL;
}

int FaultyDisk::truncate(Handle& handle, std::size_t size) {
  Verdict const verdict = judge({CallKind::truncate, handle.role}, &handle);
  if (verdict.answer) return *verdict.answer;
  if (verdict.fault) return fail(verdict.fault->error, SQLITE_IOERR_TRUNCATE, &handle);
  files_.file(handle.file).truncate(size);
  return SQLITE_OK;
}

int FaultyDisk::sync(Handle& handle) {
  Verdict const verdict = judge({CallKind::sync, handle.role}, &handle);
  if (verdict.answer) return *verdict.answer;
  DiskFile& file = files_.file(handle.file);
  if (verdict.fault) {
    file.forget();
    return fail(verdict.fault->error, SQLITE_IOERR_FSYNC, &handle);
  }
  file.synchronise();
  // The name may have been deleted since, or lead to another file.
  if (files_.find(handle.name) == handle.file) files_.synchroniseName(handle.name);
  if (std::exchange(handle.syncsFolder, false)) files_.synchroniseFolder(handle.name);
  return SQLITE_OK;
}

int FaultyDisk::size(Handle& handle, sqlite3_int64& size) {
  Verdict const verdict = judge({CallKind::size, handle.role}, &handle);
  if (verdict.answer) return *verdict.answer;
  if (verdict.fault) return fail(verdict.fault->error, SQLITE_IOERR_FSTAT, &handle);
  std::size_t const there = files_.file(handle.file).bytes().size();
  // The system's own file system takes a file of one byte for an empty one.
  size = there == 1 ? 0 : static_cast<sqlite3_int64>(there);
  return SQLITE_OK;
}

int FaultyDisk::otherLock(Handle const& handle) const {
  int strongest = SQLITE_LOCK_NONE;
  for (Handle const* other : handles_)
    if (other != &handle && other->life == life_ && other->file == handle.file)
      strongest = std::max(strongest, other->lock);
  return strongest;
}

int FaultyDisk::lock(Handle& handle, int level) {
  if (isGone(handle)) return SQLITE_IOERR;
  if (handle.lock >= level) return SQLITE_OK;
  int const other = otherLock(handle);
  if (other >= (level == SQLITE_LOCK_SHARED ? SQLITE_LOCK_PENDING : SQLITE_LOCK_RESERVED)) return SQLITE_BUSY;
  if (level == SQLITE_LOCK_EXCLUSIVE && other >= SQLITE_LOCK_SHARED) {
    // Connections that read may finish, others may not begin.
    handle.lock = SQLITE_LOCK_PENDING;
    return SQLITE_BUSY;
  }
  handle.lock = level;
  return SQLITE_OK;
}

int FaultyDisk::remove(std::string const& name, bool syncsFolder) {
  Verdict const verdict = judge({CallKind::remove, roleOf(name)});
  if (verdict.answer) return *verdict.answer;
  if (verdict.fault) return fail(verdict.fault->error, SQLITE_IOERR_DELETE);
  if (files_.find(name) == DiskFiles::kNone) return fail(ENOENT, SQLITE_IOERR_DELETE_NOENT);
  files_.remove(name);
  if (syncsFolder) files_.synchroniseFolder(name);
  return SQLITE_OK;
}

int FaultyDisk::access(std::string const& name, int what, int& answer) {
  answer = 0;
  Verdict const verdict = judge({CallKind::access, roleOf(name)});
  if (verdict.answer) return *verdict.answer;
  // The system's own file system calls a file missing that is empty, or that it cannot look at.
  if (verdict.fault) return fail(verdict.fault->error, SQLITE_OK);
  DiskFiles::Number const number = files_.find(name);
  if (number != DiskFiles::kNone && (what != SQLITE_ACCESS_EXISTS || !files_.file(number).bytes().empty())) answer = 1;
  return SQLITE_OK;
}

}  // namespace Test
