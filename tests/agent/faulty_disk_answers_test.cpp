// The simulated disk answers like the system's own files, also when these fail.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <initializer_list>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "support/faulty_disk.h"
#include "support/open_file.h"
#include "support/program.h"

namespace Test::FaultyDiskAnswersTest {
namespace {

// The error that the system's calls below fail with; SQLite calls them in place of the true ones.
int systemError = 0;

template <class Result, class... Arguments>
Result failing(Arguments...) {
  errno = systemError;
  return static_cast<Result>(-1);
}

int failToCreate(char const* name, int flags, int mode) {
  return (flags & O_CREAT) != 0 ? failing<int>() : ::open(name, flags, mode);
}

/// How the system's own file system is made to fail: the calls of the system that are replaced, by any of their names.
struct SystemCall {
  template <class Function>
  SystemCall(CallKind replacedKind, std::vector<char const*> replacedNames, Function* replacement)
      : kind(replacedKind),
        names(std::move(replacedNames)),
        function(reinterpret_cast<sqlite3_syscall_ptr>(replacement)) {}

  CallKind kind;
  std::vector<char const*> names;
  sqlite3_syscall_ptr function;
};

/// Replaces it as long as it lives.
class SystemFault {
 public:
  SystemFault(sqlite3_vfs& vfs, SystemCall const& call) : vfs_(vfs), call_(call) { functionIs(call.function); }
  ~SystemFault() { functionIs(nullptr); }
  SystemFault(SystemFault const&) = delete;
  SystemFault& operator=(SystemFault const&) = delete;

 private:
  void functionIs(sqlite3_syscall_ptr function) {
    for (char const* name : call_.names) vfs_.xSetSystemCall(&vfs_, name, function);
  }

  sqlite3_vfs& vfs_;
  SystemCall const& call_;
};

/// The code, the error that the file keeps, that of the file system, and what was asked for.
using Answer = std::tuple<int, int, int, sqlite3_int64>;

/// What one call answers while there is a fault, which lives as long as what `makeFault` gives.
Answer ask(sqlite3_vfs& vfs, std::string const& name, CallKind kind,
           std::function<std::shared_ptr<void>()> const& makeFault) {
  OpenFile file(vfs, name, kCreate | SQLITE_OPEN_MAIN_DB);
  EXPECT_EQ(file.write(std::string(100, 'x')), SQLITE_OK);
  std::string bytes(10, '?');
  sqlite3_int64 value = 0;
  int found = 0;
  if (kind == CallKind::create) vfs.xDelete(&vfs, name.c_str(), 0);
  std::shared_ptr<void> const fault = makeFault();
  auto const code = [&] {
    switch (kind) {
      case CallKind::open:
      case CallKind::create:
        return OpenFile(vfs, name, kCreate | SQLITE_OPEN_MAIN_DB).code();
      case CallKind::read:
        return file.read(bytes);
      case CallKind::write:
        return file.write("y");
      case CallKind::truncate:
        return file.truncate(50);
      case CallKind::remove:
        return vfs.xDelete(&vfs, name.c_str(), 1);
      case CallKind::access:
        return vfs.xAccess(&vfs, name.c_str(), SQLITE_ACCESS_EXISTS, &found);
      case CallKind::size:
        return file.size(value);
      case CallKind::sync:
        return file.sync();
    }
    return -1;
  }();
  return {code, file.lastError(), vfs.xGetLastError(&vfs, 0, nullptr), value + found};
}

TEST(FaultyDiskAnswers, FailLikeThoseOfTheSystem) {
  Folder const folder;
  std::string const name = folder / "file";
  sqlite3_vfs& system = *sqlite3_vfs_find("unix");
  // Synchronising is the one call of the system that cannot be replaced.
  SystemCall const calls[] = {
      {CallKind::open, {"open"}, &failing<int, char const*, int, int>},
      {CallKind::create, {"open"}, &failToCreate},
      {CallKind::read, {"pread", "pread64"}, &failing<ssize_t, int, void*, std::size_t, off_t>},
      {CallKind::write, {"pwrite", "pwrite64"}, &failing<ssize_t, int, void const*, std::size_t, off_t>},
      {CallKind::truncate, {"ftruncate"}, &failing<int, int, off_t>},
      {CallKind::remove, {"unlink"}, &failing<int, char const*>},
      {CallKind::access, {"stat"}, &failing<int, char const*, struct stat*>},
      {CallKind::size, {"fstat"}, &failing<int, int, struct stat*>},
  };
  for (SystemCall const& call : calls) {
    for (int const error : {EIO, ENOSPC, EDQUOT, EFBIG, ENXIO, EPERM}) {
      systemError = error;
      Answer const expected = ask(system, name, call.kind, [&] { return std::make_shared<SystemFault>(system, call); });
      FaultyDisk disk;
      Answer const answer = ask(*sqlite3_vfs_find(disk.name()), name, call.kind, [&] {
        disk.plan({.error = error, .call = call.kind});
        return nullptr;
      });
      EXPECT_EQ(answer, expected) << Call{call.kind, FileRole::main} << ", errno " << error;
      EXPECT_EQ(disk.fired(), 1U);
    }
  }
}

/// What calls answer that find something unusual, without a fault.
std::vector<sqlite3_int64> oddAnswers(sqlite3_vfs& vfs, std::string const& folder) {
  std::vector<sqlite3_int64> answers;
  std::string const name = folder + "file";
  // In braces, the calls are made in the order written.
  auto const add = [&](std::initializer_list<sqlite3_int64> more) { answers.insert(answers.end(), more); };
  auto const addExistence = [&] {
    for (int const what : {SQLITE_ACCESS_EXISTS, SQLITE_ACCESS_READWRITE}) {
      int found = -1;
      int const code = vfs.xAccess(&vfs, name.c_str(), what, &found);
      add({code, found});
    }
  };
  auto const addSize = [&](OpenFile& file) {
    sqlite3_int64 size = -1;
    int const code = file.size(size);
    add({code, size});
  };
  addExistence();
  add({vfs.xDelete(&vfs, name.c_str(), 1), vfs.xGetLastError(&vfs, 0, nullptr)});
  add({OpenFile(vfs, name, SQLITE_OPEN_READWRITE | SQLITE_OPEN_MAIN_DB).code(), vfs.xGetLastError(&vfs, 0, nullptr)});
  {
    OpenFile file(vfs, name, kCreate | SQLITE_OPEN_MAIN_DB);
    add({file.methods().xSectorSize(&file.file()), file.methods().xDeviceCharacteristics(&file.file())});
    addExistence();
    for (int const size : {0, 1, 2, 600}) {
      add({file.write(std::string(static_cast<std::size_t>(size), 'x'))});
      addSize(file);
    }
    addExistence();
    for (int const at : {0, 590, 600, 1000}) {
      std::string bytes(20, '?');
      add({file.read(bytes, at), static_cast<sqlite3_int64>(bytes.find('\0') + 1)});
    }
    add({file.write("y", 5000), file.truncate(6000)});
    addSize(file);
    int reserved = -1;
    for (int const level : {SQLITE_LOCK_SHARED, SQLITE_LOCK_RESERVED, SQLITE_LOCK_EXCLUSIVE}) {
      add({file.methods().xLock(&file.file(), level), file.methods().xCheckReservedLock(&file.file(), &reserved)});
      add({reserved});
      OpenFile other(vfs, name, kCreate | SQLITE_OPEN_MAIN_DB);
      add({other.methods().xLock(&other.file(), SQLITE_LOCK_SHARED),
           other.methods().xCheckReservedLock(&other.file(), &reserved)});
      add({reserved, other.methods().xUnlock(&other.file(), SQLITE_LOCK_NONE)});
    }
    add({file.methods().xUnlock(&file.file(), SQLITE_LOCK_NONE)});
  }
  {
    OpenFile const temporary(vfs, folder + "temporary", kCreate | SQLITE_OPEN_TEMP_DB | SQLITE_OPEN_DELETEONCLOSE);
    add({temporary.code()});
  }
  add({OpenFile(vfs, folder + "temporary", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MAIN_DB).code()});
  add({vfs.xDelete(&vfs, name.c_str(), 1)});
  addExistence();
  std::string full(static_cast<std::size_t>(vfs.mxPathname), '\0');
  add({vfs.xFullPathname(&vfs, (folder + "./a//../b").c_str(), static_cast<int>(full.size()), full.data()),
       full.starts_with(folder + "b" + '\0') ? 1 : 0});
  return answers;
}

TEST(FaultyDiskAnswers, AreThoseOfTheSystem) {
  Folder const folder;
  FaultyDisk disk;
  EXPECT_EQ(oddAnswers(*sqlite3_vfs_find(disk.name()), folder / ""),
            oddAnswers(*sqlite3_vfs_find("unix"), folder / ""));
}

}  // namespace
}  // namespace Test::FaultyDiskAnswersTest
