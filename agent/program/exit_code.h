// With what exit status the client commands of the program end.
#pragma once

#include "agent/client/failure.h"

namespace Agent {

enum class ExitCode {
  kDone = 0,
  kRefused = 1,             ///< The server refused, or a file could not be read or written.
  kWrongCommandLine = 2,    ///< Nothing was asked of the server.
  kNoAnswer = 3,            ///< No connection, a broken one, or an answer that is none.
  kNotFound = 4,            ///< There is no document at the path.
  kPreconditionFailed = 5,  ///< The revision is another than that of --if-match.
};

/// With what a command ends that fails so.
constexpr ExitCode exitCode(FailureKind kind) {
  switch (kind) {
    case FailureKind::kRefused:
      return ExitCode::kRefused;
    case FailureKind::kNotFound:
      return ExitCode::kNotFound;
    case FailureKind::kPreconditionFailed:
      return ExitCode::kPreconditionFailed;
    case FailureKind::kNoAnswer:
      break;
  }
  return ExitCode::kNoAnswer;
}

}  // namespace Agent
