// Loaded into a program before its libraries: each sync of a file takes as long as ENROLIX_SYNC_MILLISECONDS says.
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace {

int syncLate(long call, int file) {
  char const* const time = std::getenv("ENROLIX_SYNC_MILLISECONDS");
  if (time != nullptr) std::this_thread::sleep_for(std::chrono::milliseconds(std::atoi(time)));
  return static_cast<int>(syscall(call, file));
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's own names are reserved.
extern "C" __attribute__((visibility("default"))) int fsync(int file) { return syncLate(SYS_fsync, file); }
extern "C" __attribute__((visibility("default"))) int fdatasync(int file) { return syncLate(SYS_fdatasync, file); }
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
