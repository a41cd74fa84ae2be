// Asks the tree which document each write is part of.
#include "agent/tree/written_documents.h"

#include "agent/document/breath.h"
#include "framework/memory/assertion.h"

namespace Agent {

WrittenDocuments::WrittenDocuments(StateTree const& tree) : tree_(tree) {
  NOX_ASSERT(Nox::writeObserver_ == nullptr, "another observer watches the writes");
  Nox::writeObserver_ = this;
}

WrittenDocuments::~WrittenDocuments() { Nox::writeObserver_ = nullptr; }

void WrittenDocuments::add(Path const& path) {
  std::string text = toText(path);
  if (path.place.isFolder()) text += '/';
  if (text.ends_with('/'))
    folders_.push_back(std::move(text));
  else
    paths_.try_emplace(std::move(text), path);
}

std::map<std::string, Path> const& WrittenDocuments::paths(Documents const& before) {
  for (std::string const& folder : folders_) {
    auto const [begin, end] = withPrefix(before, folder);
    for (auto at = begin; at != end; ++at) {
      Breath::take();
      paths_.try_emplace(at->first, parsePath(at->first));
    }
  }
  return paths_;
}

void WrittenDocuments::written(Nox::Entity const& entity, std::string_view /*attribute*/, bool changed,
                               Nox::WriteText key, Nox::WriteText /*value*/) {
  if (changed) note(entity, key);
}

void WrittenDocuments::removed(Nox::Entity const& entity, std::string_view /*attribute*/, bool changed,
                               Nox::WriteText key) {
  if (changed) note(entity, key);
}

void WrittenDocuments::note(Nox::Entity const& entity, Nox::WriteText const& key) {
  if (auto const path = tree_.documentOf(entity, key)) add(*path);
  Breath::take();
}

void WrittenDocuments::delivered() { Breath::take(); }

}  // namespace Agent
