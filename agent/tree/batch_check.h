// What may not happen within one turn.
#pragma once

#include <map>
#include <set>
#include <string>

#include "agent/tree/live_tree.h"

namespace Agent {

/// Follows the registrations through a batch that is to be one turn, without touching them. No directory, "config" or
/// "status" may go and come back in it: the registry would be told of the new one while it still has the old one's
/// machine.
class BatchCheck {
 public:
  explicit BatchCheck(Documents const& documents) : documents_(documents) {}

  /// The batch goes on with this operation. Throws an InputError if it may not.
  void add(Operation const& operation);

 private:
  /// One registration on its way through the batch.
  struct Registration {
    std::set<std::string> entries;
    std::set<std::string> gone;
    bool isGone = false;

    void put(Place place, std::string const& entry);
    void remove(std::string const& entry);
    void removeAll();
  };

  Registration& registration(std::string const& switchName);

  Documents const& documents_;
  std::map<std::string, Registration> registrations_;
};

}  // namespace Agent
