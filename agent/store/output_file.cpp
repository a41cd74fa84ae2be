// Writes with the system's calls: streams do not say why they fail.
#include "agent/store/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "agent/document/input_error.h"

namespace Agent {

std::filesystem::path behindLinks(std::filesystem::path file) {
  constexpr int kMostLinks = 40;
  std::error_code error;
  for (int links = 0; links < kMostLinks && std::filesystem::is_symlink(file, error); ++links) {
    std::filesystem::path const next = std::filesystem::read_symlink(file, error);
    if (error) break;
    file = file.parent_path() / next;
  }
  return file;
}

void synchroniseFolder(std::filesystem::path const& folder) {
  int const descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  ::fsync(descriptor);
  ::close(descriptor);
}

OutputFile::OutputFile(std::optional<std::string> const& file, Care care)
    : name_(file ? *file : "standard output"), care_(care), descriptor_(STDOUT_FILENO) {
  if (!file) return;
  struct stat status {};
  bool const isThere = ::stat(file->c_str(), &status) == 0;
  if (!isThere && errno != ENOENT) fail();
  bool const isFile = !isThere || S_ISREG(status.st_mode);
  // The file is replaced, not a link to it. Links to what is no file may lead to names that cannot be opened, as that
  // of a pipe does.
  target_ = isFile ? behindLinks(*file).string() : *file;
  if (isFile) {
    temporary_ = target_ + ".XXXXXX";
    descriptor_ = ::mkostemp(temporary_.data(), O_CLOEXEC);
  } else {
    descriptor_ = ::open(target_.c_str(), O_WRONLY | O_CLOEXEC);
  }
  if (descriptor_ < 0) fail();
  if (temporary_.empty() || care_ == Care::kKept) return;
  // Made for the owner alone; it gets what any new file gets.
  mode_t const mask = ::umask(0);
  ::umask(mask);
  ::fchmod(descriptor_, 0666 & ~mask);
}

OutputFile::~OutputFile() {
  if (descriptor_ > STDOUT_FILENO) ::close(descriptor_);
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void OutputFile::write(std::string_view text) {
  constexpr std::size_t kBufferSize = 64 * 1024;
  buffer_ += text;
  if (buffer_.size() >= kBufferSize) flush();
}

void OutputFile::finish() {
  flush();
  if (temporary_.empty()) return;
  if (care_ == Care::kKept && ::fsync(descriptor_) != 0) fail();
  if (std::rename(temporary_.c_str(), target_.c_str()) != 0) fail();
  temporary_.clear();
  if (care_ == Care::kKept) synchroniseFolder(std::filesystem::absolute(target_).parent_path());
}

void OutputFile::flush() {
  for (std::string_view rest = buffer_; !rest.empty();) {
    ssize_t const count = ::write(descriptor_, rest.data(), rest.size());
    if (count >= 0)
      rest.remove_prefix(static_cast<std::size_t>(count));
    else if (errno != EINTR)
      fail();
  }
  buffer_.clear();
}

void OutputFile::fail() const { throw FileError(name_, errno); }

}  // namespace Agent
