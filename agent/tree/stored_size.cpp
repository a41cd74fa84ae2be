// Adds up what a batch would make of the documents.
#include "agent/tree/stored_size.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <utility>

#include "agent/document/breath.h"
#include "agent/document/json_text.h"

namespace Agent {
namespace {

/// The documents of one turn have no more bytes: they come in one body. As long as there is more room than that,
/// nothing need be added up.
constexpr std::int64_t kLargestTurn = std::int64_t{512} * 1024 * 1024;

constexpr Place kConfig("registration/<switch>/config");
constexpr Place kStatus("registration/<switch>/status");
constexpr Place kOffer("mount/offer/<systemId>");
constexpr std::string_view kConfigName = kConfig.pattern().substr(kConfig.pattern().rfind('/'));
constexpr std::array kServices = {Place("service/config/<service>"), Place("service/override/<service>")};

/// Whose identity the registration has; nothing if it has no configuration.
std::optional<SystemId> identityOf(std::string const& registration, Documents const& documents) {
  auto const config = documents.find(textAt(kConfig, {registration}));
  if (config == documents.end()) return std::nullopt;
  auto const address = Lumo::EthAddr::parse(readJson(*config->second.text).at("systemId").get<std::string>());
  return address ? std::optional(SystemId(*address)) : std::nullopt;
}

[[noreturn]] void refuse(std::string const& reason, Operation const& operation) {
  QuotaRefusal refusal(reason);
  refusal.pathIs(toText(operation.path));
  throw refusal;
}

/// A batch on its way through the documents, which stay as they are.
class Growth {
 public:
  explicit Growth(Documents const& standing) : documents_(standing) {}

  StoredAmount amount;

  void add(Operation const& operation) {
    std::string const path = toText(operation.path);
    if (operation.isPut()) return become(path, path.size() + jsonText(*operation.value).size());
    if (!operation.path.place.isFolder()) return become(path, 0);
    auto const [begin, end] = withPrefix(documents_, path + "/");
    for (auto at = begin; at != end; ++at) become(at->first, 0);
    for (auto at = written_.lower_bound(path + "/"); at != written_.end() && at->first.starts_with(path + "/"); ++at)
      become(at->first, 0);
  }

 private:
  /// The document at the path comes to have so many bytes; none if it goes.
  void become(std::string const& path, std::size_t size) {
    auto const known = documents_.find(path);
    std::size_t const stands = known != documents_.end() ? path.size() + known->second.text->size() : 0;
    std::size_t const before = std::exchange(written_.try_emplace(path, stands).first->second, size);
    amount.go(path, before);
    amount.come(path, size);
  }

  Documents const& documents_;
  std::map<std::string, std::size_t, std::less<>> written_;
};

/// Why what is there now may not become more by so much; nothing if it may.
std::optional<std::string> reasonAgainst(StoredAmount const& now, StoredAmount const& more,
                                         StoredLimits const& limits) {
  auto const isTooMuch = [](std::int64_t before, std::int64_t after, std::uint64_t most) {
    return after > before && static_cast<std::uint64_t>(after) > most;
  };
  auto const tooMuch = [](std::string const& what, std::uint64_t most) {
    return what + ", of " + std::to_string(most) + " that are kept at most; a delete makes room";
  };
  if (isTooMuch(now.documents, now.documents + more.documents, limits.documents))
    return tooMuch("there are " + std::to_string(now.documents) + " documents", limits.documents);
  if (isTooMuch(now.bytes, now.bytes + more.bytes, limits.bytes))
    return tooMuch("all documents have " + std::to_string(now.bytes) + " bytes", limits.bytes);
  if (isTooMuch(
          now.services * now.switches, (now.services + more.services) * (now.switches + more.switches), limits.pairs))
    return tooMuch(std::to_string(now.services) + " services of the controller times " + std::to_string(now.switches) +
                       " switches are " + std::to_string(now.services * now.switches),
                   limits.pairs);
  return std::nullopt;
}

}  // namespace

void StoredAmount::count(std::string_view path, std::size_t size, int sign) {
  if (size == 0) return;
  documents += sign;
  bytes += sign * static_cast<std::int64_t>(size);
  if (path.starts_with(kConfig.prefix()) && path.ends_with(kConfigName))
    switches += sign;
  else if (std::ranges::any_of(kServices, [&](Place place) { return path.starts_with(place.prefix()); }))
    services += sign;
}

StoredSize::StoredSize(Documents const& documents, StoredLimits const& limits) : limits_(limits) {
  for (auto const& [path, document] : documents) added(path, *document.text);
}

void StoredSize::added(std::string const& path, std::string const& text) {
  amount_.come(path, path.size() + text.size());
  if (text.size() <= limits_.status) return;
  if (Path const parsed = parsePath(path); parsed.place == kStatus) long_.insert(parsed.names[0]);
}

void StoredSize::removed(std::string const& path, std::string const& text) {
  amount_.go(path, path.size() + text.size());
  if (text.size() <= limits_.status) return;
  if (Path const parsed = parsePath(path); parsed.place == kStatus) long_.erase(parsed.names[0]);
}

void StoredSize::require(std::span<Operation const> operations, Documents const& documents, std::size_t& at) const {
  for (at = 0; !long_.empty() && at < operations.size(); ++at)
    if (operations[at].isPut()) requireShortStatus(operations[at], documents);
  requireRoom(operations, documents, at);
}

// A heartbeat has the registry write there too, but no more than once for what is offered and configured. A put of the
// status itself is what clears it.
void StoredSize::requireShortStatus(Operation const& operation, Documents const& documents) const {
  Path const& path = operation.path;
  for (std::string const& registration : long_) {
    bool const isOfSwitch = path.place == kConfig && path.names[0] == registration;
    if (!isOfSwitch && (path.place != kOffer || identityOf(registration, documents) != path.systemId)) continue;
    std::string const status = textAt(kStatus, {registration});
    refuse(status + " has " + std::to_string(documents.at(status).text->size()) +
               " bytes, and nothing is put for its switch beyond " + std::to_string(limits_.status) +
               ": it tells of all services that the switch has left, too; expected it to be deleted and put anew",
           operation);
  }
}

void StoredSize::requireRoom(std::span<Operation const> operations, Documents const& documents, std::size_t& at) const {
  auto const count = static_cast<std::int64_t>(operations.size());
  StoredAmount const most{count, kLargestTurn, count, count};
  if (!reasonAgainst(amount_, most, limits_)) return;
  Growth growth(documents);
  std::optional<std::size_t> first;
  for (std::size_t number = 0; number < operations.size(); ++number) {
    Breath::take();
    growth.add(operations[number]);
    // What goes later in the batch makes room for what comes before.
    if (!reasonAgainst(amount_, growth.amount, limits_))
      first = std::nullopt;
    else if (!first)
      first = number;
  }
  if (!first) return;
  at = *first;
  refuse(*reasonAgainst(amount_, growth.amount, limits_), operations[at]);
}

}  // namespace Agent
