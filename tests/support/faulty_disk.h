// A simulated disk under SQLite, in memory: it fails, fills up, forgets and loses its power when a test says so.
#pragma once

#include <sqlite3.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "support/disk_files.h"

namespace Test {

/// What a file system is asked for; `create` is an `open` that makes the file.
enum class CallKind { open, create, read, write, truncate, sync, remove, access, size };
/// What a file is to its database, as its name ends.
enum class FileRole { main, log, journal, witness, temporary };

struct Call {
  CallKind kind;
  FileRole role;

  bool operator==(Call const&) const = default;
};
/// "sync of log"
std::ostream& operator<<(std::ostream& out, Call const& call);

enum class Effect {
  fail,      ///< The call fails with `error`. A sync forgets what it did not write, so that no later one writes it.
  shorten,   ///< A write stops at half of its bytes and fails with `error`. Other calls are not harmed.
  lie,       ///< A write, truncate, sync or remove says that it succeeded, and did nothing. Others are not harmed.
  slow,      ///< `run` is called before the call goes on. It may end the process.
  kill,      ///< The process ends: this call and all further ones fail, what was written stays.
  powerCut,  ///< The same, and at the restart `seed` decides what becomes of all that is not on the disk for good.
};

/// What will happen to one call.
struct Fault {
  Effect effect = Effect::fail;
  /// A value of `errno`. Missing room (ENOSPC, EDQUOT, EFBIG) harms only writes and creations, unless `call` says
  /// what.
  int error = EIO;
  /// Which calls it harms; without these, all.
  std::optional<CallKind> call = std::nullopt;
  std::optional<FileRole> role = std::nullopt;
  /// So many of these calls go well before it, counted from when it is planned.
  std::size_t after = 0;
  /// It stays until all faults are cleared; otherwise it happens once.
  bool persists = false;
  std::uint32_t seed = 0;
  std::function<void()> run = nullptr;
};

/// The disk is a file system of SQLite (a VFS) under a name of its own, which connections are opened with:
///   FaultyDisk disk;
///   disk.plan({.error = ENOSPC, .call = CallKind::write, .role = FileRole::log, .after = 3});
///   sqlite3_open_v2("/state", &database, flags, disk.name()); ... EXPECT_EQ(disk.fired(), 1U);
///   disk.powerCut(seed); disk.restart(); ...
///
/// It answers as the system's own file system ("unix") does, odd answers too: code and `errno` of each error, an empty
/// file that is not found, a creation that fails with ENOENT. It promises no more than that one: a write is torn at any
/// byte, but harms no byte beside it. A name that is new or gone is on the disk once its file is synchronised, or its
/// folder, which is done by a deletion that says so and by the first sync of a log or journal opened to be created.
///
/// All names are absolute; relative ones begin at "/". There is no shared memory: a log needs
/// "PRAGMA locking_mode = EXCLUSIVE". One thread uses the disk at a time, and it outlives all connections.
class FaultyDisk {
 public:
  /// All files, with what is not yet on the disk for good.
  using Snapshot = DiskFiles;

  FaultyDisk();
  ~FaultyDisk();
  FaultyDisk(FaultyDisk const&) = delete;
  FaultyDisk& operator=(FaultyDisk const&) = delete;

  /// Of the VFS.
  char const* name() const { return name_.c_str(); }

  /// All calls so far, those that failed too, without those of a process that has ended.
  std::vector<Call> const& calls() const { return calls_; }

  /// Several faults may be planned; of those that a call meets, the first one happens.
  void plan(Fault const& fault);
  void clearFaults();
  /// How often a planned fault, kill or loss of power happened since the faults were cleared.
  std::size_t fired() const { return fired_; }

  /// Ends the process after so many more calls, at once if there are none. A connection that is open then can only be
  /// closed.
  void kill(std::size_t after = 0);
  /// The same, with the power of the whole machine.
  void powerCut(std::uint32_t seed, std::size_t after = 0);
  bool isDown() const { return end_.has_value(); }
  /// The disk works again, for another process: locks and open files are gone, an end that was planned will not come,
  /// other faults stay. Without an end before it, it stands for a kill.
  void restart();

  Snapshot snapshot() const { return files_; }
  /// The disk is as new with these files: as after a restart, without faults and calls.
  void restoreTo(Snapshot const& snapshot);

  std::vector<std::string> names() const { return files_.names(); }
  /// As they would be read now. Throws std::out_of_range for a name that is not there.
  std::string const& bytes(std::string const& name) const;
  /// What the file consists of from now on, for good; makes it if it is missing.
  void setBytes(std::string const& name, std::string bytes);
  /// For good.
  void remove(std::string const& name);

 private:
  struct Handle;

  /// A planned fault, with the calls that are still to go well.
  struct Planned {
    Fault fault;
    std::size_t left;
  };

  /// What becomes of a call: it has its answer, or it fails with this fault, or it is carried out.
  struct Verdict {
    std::optional<int> answer;
    std::optional<Fault> fault;
  };

  static bool harms(Fault const& fault, Call call);
  bool isGone(Handle const& handle) const;
  /// Notes a call, of a file that is open if it is one on such a file, and judges it.
  Verdict judge(Call call, Handle const* handle = nullptr);
  int fail(int error, int code, Handle* handle = nullptr);
  /// The strongest lock that other connections have on the file.
  int otherLock(Handle const& handle) const;

  static FaultyDisk& of(sqlite3_vfs* vfs) { return *static_cast<FaultyDisk*>(vfs->pAppData); }
  static sqlite3_io_methods const& methods();
  int open(char const* name, sqlite3_file* file, int flags);
  void close(Handle& handle);
  int read(Handle& handle, char* buffer, std::size_t size, std::size_t at);
  int write(Handle& handle, std::string_view bytes, std::size_t at);
  int truncate(Handle& handle, std::size_t size);
  int sync(Handle& handle);
  int size(Handle& handle, sqlite3_int64& size);
  int lock(Handle& handle, int level);
  int remove(std::string const& name, bool syncsFolder);
  int access(std::string const& name, int what, int& answer);

  std::string name_;
  sqlite3_vfs vfs_{};
  DiskFiles files_;
  std::vector<Handle*> handles_;
  std::vector<Call> calls_;
  std::vector<Planned> faults_;
  std::size_t fired_ = 0;
  std::optional<Fault> end_;
  /// Counts the processes: handles of an earlier one are void.
  int life_ = 0;
  int lastError_ = 0;
  int temporaries_ = 0;
};

}  // namespace Test
