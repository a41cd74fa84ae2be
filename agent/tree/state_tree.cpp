// Has each operation done by the row of the place that its path names.
#include "agent/tree/state_tree.h"

#include <algorithm>

namespace Agent {
namespace {

std::optional<Path> documentIn(Place place, Nox::Entity const& holder, Nox::WriteText const& key) {
  auto const words = std::count(place.pattern().begin(), place.pattern().end(), '<');
  Path path{place};
  if (place.hasSystemId()) {
    auto const address = Lumo::EthAddr::parse(key.text());
    if (!address) return std::nullopt;
    path.systemId = SystemId(*address);
  } else {
    if (words > 0) path.names[0] = holder.name().view();
    if (words > 1) path.names[1] = key.text();
  }
  return path;
}

}  // namespace

CheckedOperation StateTree::check(Path const& path, Json const* document) {
  return {path, document != nullptr, rowOf(path.place).check(document, Writer::kOutside)};
}

void StateTree::apply(CheckedOperation const& operation) {
  PlaceRow const& row = rowOf(operation.path_.place);
  Nox::Turn turn;
  if (operation.isPut_)
    row.put(content_, operation.path_, operation.document_, Writer::kOutside);
  else
    row.remove(content_, operation.path_);
}

std::optional<Json> StateTree::inputOf(Path const& path, Json const& document) {
  return rowOf(path.place).input(document);
}

void StateTree::restore(Path const& path, Json const& document) {
  PlaceRow const& row = rowOf(path.place);
  row.put(content_, path, row.check(&document, Writer::kRegistry), Writer::kRegistry);
}

std::optional<Json> StateTree::read(Path const& path) const {
  DocumentText const found = text(path);
  return found ? std::optional(readJson(*found)) : std::nullopt;
}

DocumentText StateTree::text(Path const& path) const { return rowOf(path.place).text(content_, path); }

// No path of one place stands between two of another, but for those of a folder, which lists them all.
void StateTree::forEachPath(PathVisit const& visit) const {
  auto const rows = placeRows();
  std::vector<PlaceRow> sorted(rows.begin(), rows.end());
  std::stable_sort(sorted.begin(), sorted.end(), [](PlaceRow const& a, PlaceRow const& b) {
    return a.place.prefix() < b.place.prefix();
  });
  for (PlaceRow const& row : sorted) row.list(content_, row.place, visit);
}

void StateTree::forEach(std::function<void(std::string const&, Json const&)> const& visit) const {
  forEachPath([&](std::string const& path) {
    if (auto const document = read(parsePath(path))) visit(path, *document);
  });
}

// What a document holds lies some levels below the record that holds it.
std::optional<Path> StateTree::documentOf(Nox::Entity const& record, Nox::WriteText key) const {
  auto const nameOf = [](void const* at) { return std::string(static_cast<Nox::Entity const*>(at)->name().view()); };
  for (Nox::Ptr<Nox::Entity const> at(&record); at; at = at->parent()) {
    for (PlaceRow const& row : placeRows()) {
      if (row.holder == &at->fwkType()) return documentIn(row.place, *at, key);
      if (row.holders != nullptr && at == content_.tables.*row.holders) return Path{row.place, {}, {key.text(), ""}};
    }
    key = {at.get(), nameOf};
  }
  return std::nullopt;
}

}  // namespace Agent
