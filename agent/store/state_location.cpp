#include "agent/store/state_location.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "agent/document/input_error.h"
#include "agent/store/output_file.h"
#include "agent/store/state_check.h"
#include "agent/store/state_file.h"

namespace Agent {
namespace {

[[noreturn]] void fail(std::string const& name, std::string const& reason, int error) {
  std::string const text = printable(name) + ": " + reason + ": " + std::generic_category().message(error);
  if (error == ENOSPC || error == EDQUOT) throw StoreFull(text);
  throw StoreError(text);
}

void makeFolder(std::string const& name, std::filesystem::path const& folder) {
  std::error_code error;
  std::vector<std::filesystem::path> missing;
  for (std::filesystem::path at = folder; !at.empty() && !std::filesystem::exists(at, error); at = at.parent_path())
    missing.push_back(at);
  std::filesystem::create_directories(folder, error);
  if (error) fail(name, "the folder " + inQuotes(folder.string()) + " cannot be made", error.value());
  for (std::filesystem::path const& made : missing) synchroniseFolder(made.parent_path());
}

// Opening what is no regular file may wait for ever, as for a fifo, or fail with an error that does not say why.
void requireRegular(std::string const& name, std::filesystem::path const& file) {
  std::error_code error;
  std::string const called = printable(name);
  if (std::filesystem::exists(file, error) && !std::filesystem::is_regular_file(file, error))
    throw StoreError(called + ": is no regular file, a state file was expected");
  for (auto const& [what, ending] : kStateNeighbours) {
    std::string const beside = file.string() + ending;
    // SQLite follows no links there.
    std::filesystem::file_status const found = std::filesystem::symlink_status(beside, error);
    if (std::filesystem::exists(found) && !std::filesystem::is_regular_file(found))
      throw StoreError(called + ": its " + what + " " + inQuotes(beside) + " is no regular file: move it away");
  }
}

}  // namespace

Located locate(std::string const& name, std::optional<Revision> acceptedLoss) {
  Located found{behindLinks(std::filesystem::absolute(name))};
  requireRegular(name, found.file);
  std::error_code error;
  found.isThere = std::filesystem::exists(found.file, error);
  if (!found.isThere) requireNoLoss(printable(name), examineMissingFile(found.file.string()), acceptedLoss);
  return found;
}

std::string makeFile(std::string const& name, std::optional<Revision> acceptedLoss) {
  auto const [file, isThere] = locate(name, acceptedLoss);
  if (isThere) return file.string();
  makeFolder(name, file.parent_path());
  int const descriptor = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (descriptor < 0) fail(name, "cannot be made", errno);
  ::close(descriptor);
  synchroniseFolder(file.parent_path());
  return file.string();
}

}  // namespace Agent
