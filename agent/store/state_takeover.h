// Taking over a state file of the first format.
#pragma once

#include "agent/store/sqlite_database.h"

namespace Agent {

/// Leaves a copy of the file and of the log beside it, synchronised, as "FILE-format1" and "FILE-format1-wal": a state
/// that the versions of that format open. The database has the file for itself. Throws a StoreError.
void copyFirstFormat(SqliteDatabase const& database, bool hadLog);

}  // namespace Agent
