// What a switch keeps in its registration beside "config" and "status".
#pragma once

#include "agent/document/documents.h"
#include "framework/core/entity.h"

namespace Agent {

/// An entity like any other for the registry, which never looks inside; its content goes with it.
class KeptEntry final : public Nox::Entity {
 public:
  KeptEntry(Nox::Name name, DocumentText content) : Entity(std::move(name)), content_(std::move(content)) {}

  DocumentText const& content() const noexcept { return content_; }
  void contentIs(DocumentText content) { content_ = std::move(content); }

 private:
  DocumentText content_;
};

}  // namespace Agent
