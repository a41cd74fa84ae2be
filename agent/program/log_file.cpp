// Puts another file in the place of standard error.
#include "agent/program/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace Agent {

LogFile::LogFile() {
  struct stat error {};
  struct stat output {};
  // A file without a name cannot be found again.
  if (::fstat(STDERR_FILENO, &error) != 0 || !S_ISREG(error.st_mode) || error.st_nlink == 0) return;
  std::error_code ignored;
  name_ = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(STDERR_FILENO), ignored).string();
  permissions_ = error.st_mode & 0777u;
  isOutputToo_ = ::fstat(STDOUT_FILENO, &output) == 0 && output.st_dev == error.st_dev && output.st_ino == error.st_ino;
}

std::string LogFile::openAnew() const {
  // What is no file, a pipe without a reader for instance, would hold up the agent.
  int const descriptor =
      ::open(name_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, permissions_);
  std::string problem;
  struct stat status {};
  if (descriptor >= 0 && ::fstat(descriptor, &status) == 0 && !S_ISREG(status.st_mode))
    problem = "is no regular file";
  else if (descriptor < 0 || ::dup2(descriptor, STDERR_FILENO) < 0 ||
           (isOutputToo_ && ::dup2(descriptor, STDOUT_FILENO) < 0))
    problem = std::generic_category().message(errno);
  if (descriptor >= 0) ::close(descriptor);
  return problem;
}

}  // namespace Agent
