// With what the program's client commands leave.
#pragma once

namespace Agent {

enum class ExitCode {
  kDone = 0,
  kRefused = 1,             ///< The server refused, or a file could not be read or written.
  kWrongCommandLine = 2,    ///< Nothing was asked of the server.
  kNoAnswer = 3,            ///< No connection, a broken one, or an answer that is none.
  kNotFound = 4,            ///< There is no document at the path.
  kPreconditionFailed = 5,  ///< The revision is another than that of --if-match.
};

}  // namespace Agent
