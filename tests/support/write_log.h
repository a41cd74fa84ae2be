// A log of every write of an attribute, in order.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/core/entity.h"
#include "framework/core/write_observer.h"

/// Collects the writes for the length of a scope, those that change nothing too:
///   WriteLog log; ... EXPECT_THAT(log.lines(), ElementsAre("leaf-1.clientShutdownAck = 1", ...));
/// A line is one of
///   ENTITY.ATTRIBUTE = VALUE                a scalar; text stands in quotes, an entity as its full name
///   ENTITY.ATTRIBUTE[KEY] = VALUE           a keyed value; "{}" for a member that is made from its key
///   ENTITY.ATTRIBUTE[KEY] deleted           a removal
/// with " (equal)" behind a write and " (absent)" behind a removal that changed nothing. The entity stands with its own
/// name; an attribute has the name of its reader. Logs nest: the inner one takes over, the outer one goes on after it.
class WriteLog final : public Nox::WriteObserver {
 public:
  WriteLog() : before_(std::exchange(Nox::writeObserver_, this)) {}
  WriteLog(WriteLog const&) = delete;
  WriteLog& operator=(WriteLog const&) = delete;
  virtual ~WriteLog() { Nox::writeObserver_ = before_; }

  /// Every write so far.
  std::vector<std::string> const& lines() const { return lines_; }
  /// Those that changed something.
  std::vector<std::string> const& changes() const { return changes_; }
  /// Every write of one entity or attribute: of those lines that begin with "leaf-1." or contain ".registeredSwitch[",
  /// say.
  std::vector<std::string> linesWith(std::string_view part) const {
    std::vector<std::string> chosen;
    for (std::string const& line : lines_)
      if (line.find(part) != std::string::npos) chosen.push_back(line);
    return chosen;
  }
  void clear() {
    lines_.clear();
    changes_.clear();
  }

 private:
  void written(Nox::Entity const& entity, std::string_view attribute, bool changed, Nox::WriteText key,
               Nox::WriteText value) override {
    add(entity, attribute, key.text(), " = " + value.text(), changed, " (equal)");
  }
  void removed(Nox::Entity const& entity, std::string_view attribute, bool changed, Nox::WriteText key) override {
    add(entity, attribute, key.text(), " deleted", changed, " (absent)");
  }

  void add(Nox::Entity const& entity, std::string_view attribute, std::string const& key, std::string const& what,
           bool changed, char const* ifNot) {
    std::string line(entity.name().view());
    line.append(1, '.').append(attribute);
    if (!key.empty()) line += '[' + key + ']';
    line += what;
    if (changed)
      changes_.push_back(line);
    else
      line += ifNot;
    lines_.push_back(std::move(line));
  }
  Nox::WriteObserver* before_;
  std::vector<std::string> lines_;
  std::vector<std::string> changes_;
};
