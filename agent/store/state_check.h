// Whether a state is what was last answered: its documents, its head and its witness must agree.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/store/sqlite_database.h"
#include "agent/store/state_file.h"
#include "agent/store/witness.h"

namespace Agent {

/// What was found in a state.
struct StateFinding {
  /// The state that the file and its log hold. If they do not agree with what was answered, the best that there is:
  /// without the documents that are not as they were written.
  StateHead head;
  /// What does not agree, in words that follow "FILE: "; empty if all does.
  std::string loss;
  /// The documents that are not as they were written.
  std::vector<std::string> damaged;
};

/// A state that does not agree with what was last answered; what() says what is missing, and how to go on.
class StateLoss : public StoreError {
 public:
  using StoreError::StoreError;
};

/// Compares all. `witness` is what the witness tells, `hadLog` whether there was a log. Throws a StoreError if the
/// database cannot be read.
StateFinding examineState(SqliteDatabase const& database, std::optional<Witness::Record> const& witness, bool hadLog);

/// What is lost if the file is empty: a state that has a log or a witness was never empty. `hasLog` tells of a log.
/// Throws a StoreError if the witness cannot be read.
StateFinding examineEmptyFile(SqliteDatabase const& database, bool hasLog);

/// What is lost if the file of this absolute path is missing: a log or a witness that stands without it tells of one.
StateFinding examineMissingFile(std::string const& path);

/// Throws a StateLoss about the file called `name`, if there is a loss, unless `accepted` is the revision that the
/// state holds.
void requireNoLoss(std::string const& name, StateFinding const& finding, std::optional<Revision> accepted);

/// Makes the state agree with what it holds, as the beginning of another history. In one transaction; throws a
/// StoreError.
void acceptLoss(SqliteDatabase& database, StateFinding& finding, std::optional<Witness::Record> const& witness);

}  // namespace Agent
