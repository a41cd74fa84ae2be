// How much the documents of a tree are, and how much they may be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <set>
#include <span>
#include <string>
#include <string_view>

#include "agent/document/documents.h"
#include "agent/document/input_error.h"
#include "agent/document/scenario.h"

namespace Agent {

/// What clients may let the documents become. What is stored already, and what the registry writes, is counted and
/// never refused.
struct StoredLimits {
  // 100,000 switches with four services each have 400,000 documents of 150 MB.
  std::uint64_t documents = 4'000'000;
  /// Of paths and texts.
  std::uint64_t bytes = std::uint64_t{1024} * 1024 * 1024;
  /// Services that the controller configures or overrides, times configured switches: in each such switch the registry
  /// has a reactor for each such service.
  std::uint64_t pairs = 16'777'216;
  /// Of the status of a registration. The registry keeps there what a switch has offered and configured for services
  /// that it has left since, so that it may grow with puts that make nothing longer. A switch whose documents have the
  /// size that they may have comes to less than this.
  std::uint64_t status = std::uint64_t{8} * 1024 * 1024;
};

/// A put that would make the documents more than they may be, or of a switch whose status is longer than it may be.
class QuotaRefusal : public InputError {
 public:
  explicit QuotaRefusal(std::string const& reason) : InputError("", reason) {}
};

/// How much some documents are, or by how much they become more.
struct StoredAmount {
  std::int64_t documents = 0;
  /// Of paths and texts.
  std::int64_t bytes = 0;
  /// That the controller configures or overrides.
  std::int64_t services = 0;
  /// That are configured.
  std::int64_t switches = 0;

  /// The document at the path comes to have so many bytes, with those of the path, or had them before; none if it is
  /// not there.
  void come(std::string_view path, std::size_t size) { count(path, size, 1); }
  void go(std::string_view path, std::size_t size) { count(path, size, -1); }

 private:
  void count(std::string_view path, std::size_t size, int sign);
};

/// The number and the bytes of documents, as they change.
class StoredSize {
 public:
  StoredSize(Documents const& documents, StoredLimits const& limits);

  void added(std::string const& path, std::string const& text);
  void removed(std::string const& path, std::string const& text);

  /// Throws a QuotaRefusal, with its path, if the operations together would make more of the documents than they may
  /// be, and more than they are; `at` receives which was too much. A put counts as what its client wrote. Also for a
  /// put that the registry may answer in a status that is too long.
  void require(std::span<Operation const> operations, Documents const& documents, std::size_t& at) const;

 private:
  void requireRoom(std::span<Operation const> operations, Documents const& documents, std::size_t& at) const;
  void requireShortStatus(Operation const& operation, Documents const& documents) const;

  StoredLimits limits_;
  StoredAmount amount_;
  /// The registrations with a status that is too long.
  std::set<std::string, std::less<>> long_;
};

}  // namespace Agent
