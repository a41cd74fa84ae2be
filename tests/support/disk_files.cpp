// What a loss of power does to files.
#include "support/disk_files.h"

#include <algorithm>
#include <set>

namespace Test {

void DiskFile::write(std::size_t at, std::string_view bytes) {
  while (!bytes.empty()) {
    std::string_view const piece = bytes.substr(0, kSector - at % kSector);
    apply(unsynchronised_.emplace_back(Change{at, std::string(piece)}), bytes_);
    at += piece.size();
    bytes.remove_prefix(piece.size());
  }
}

void DiskFile::truncate(std::size_t size) { apply(unsynchronised_.emplace_back(Change{size, std::nullopt}), bytes_); }

void DiskFile::synchronise() {
  for (Change const& change : unsynchronised_) apply(change, durable_);
  unsynchronised_.clear();
}

void DiskFile::cut(std::mt19937& random) {
  // Most losses of power take all, nothing or little; pieces that all had the same chance would nearly never do that.
  constexpr std::size_t kRates = 5;
  constexpr std::size_t kHarmedOf16[kRates] = {0, 1, 8, 15, 16};
  std::size_t const harmed = kHarmedOf16[random() % kRates];
  for (Change& change : unsynchronised_) {
    if (random() % 16 >= harmed) {
      apply(change, durable_);
      continue;
    }
    // Half of what is harmed is lost. A length changes as a whole.
    std::size_t const harm = random() % 6;
    if (harm < 3 || !change.bytes) continue;
    std::string& bytes = *change.bytes;
    std::size_t const middle = random() % (bytes.size() + 1);
    if (harm == 3) {
      bytes.resize(middle);
    } else if (harm == 4) {
      bytes.erase(0, middle);
      change.at += middle;
    } else {
      for (char& byte : bytes) byte = static_cast<char>(random());
    }
    if (!bytes.empty()) apply(change, durable_);
  }
  unsynchronised_.clear();
  bytes_ = durable_;
}

void DiskFile::apply(Change const& change, std::string& content) {
  if (!change.bytes) {
    content.resize(change.at);
    return;
  }
  content.resize(std::max(content.size(), change.at + change.bytes->size()));
  content.replace(change.at, change.bytes->size(), *change.bytes);
}

DiskFiles::Number DiskFiles::find(std::string const& name) const {
  auto const found = names_.find(name);
  return found == names_.end() ? kNone : found->second.current();
}

std::vector<std::string> DiskFiles::names() const {
  std::vector<std::string> names;
  for (auto const& [name, entry] : names_)
    if (entry.current() != kNone) names.push_back(name);
  return names;
}

DiskFiles::Number DiskFiles::make(std::string const& name) {
  files_.try_emplace(++last_);
  names_[name].unsynchronised.push_back(last_);
  return last_;
}

void DiskFiles::synchroniseName(std::string const& name) {
  Name& entry = names_[name];
  entry.durable = entry.current();
  entry.unsynchronised.clear();
}

void DiskFiles::synchroniseFolder(std::string const& name) {
  auto const folder = [](std::string const& file) { return std::string_view(file).substr(0, file.rfind('/') + 1); };
  for (auto const& [other, entry] : names_)
    if (folder(other) == folder(name)) synchroniseName(other);
}

void DiskFiles::cut(std::mt19937& random) {
  for (auto& [name, entry] : names_) {
    std::size_t const chosen = random() % (entry.unsynchronised.size() + 1);
    if (chosen > 0) entry.durable = entry.unsynchronised[chosen - 1];
    entry.unsynchronised.clear();
  }
  for (auto& [number, file] : files_) file.cut(random);
  release();
}

void DiskFiles::release() {
  std::erase_if(names_,
                [](auto const& name) { return name.second.durable == kNone && name.second.unsynchronised.empty(); });
  std::set<Number> named;
  for (auto const& [name, entry] : names_) {
    named.insert(entry.durable);
    named.insert(entry.unsynchronised.begin(), entry.unsynchronised.end());
  }
  std::erase_if(files_, [&named](auto const& file) { return !named.contains(file.first); });
}

}  // namespace Test
