// Why the server did not do what a client asked for.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "agent/document/export.h"
#include "agent/net/http.h"

namespace Agent {

/// What went wrong, for a program that decides on it.
enum class FailureKind {
  kRefused,             ///< The server refused, or a file could not be read or written.
  kNotFound,            ///< There is no document at the path.
  kPreconditionFailed,  ///< The document's revision is another than the one that the request named.
  kNoAnswer,            ///< The answer cannot be understood.
};

/// The server's refusal, or an answer that cannot be understood. what() is one line for people that says why.
class ENROLIX_EXPORT ClientFailure : public std::runtime_error {
 public:
  ClientFailure(FailureKind kind, std::string const& line) : std::runtime_error(line), kind_(kind) {}
  FailureKind kind() const { return kind_; }

 private:
  FailureKind kind_;
};

/// What a response with an error says.
struct Refusal {
  int status = 0;
  std::string path;
  std::string field;
  std::string reason;
  /// Of the operations that were sent: the line that was refused, and how many were applied.
  std::optional<std::uint64_t> line;
  std::optional<std::uint64_t> applied;
};

/// Of a response from a server of another kind, only status and reason are known.
ENROLIX_EXPORT Refusal readRefusal(HttpResponse const& response);
/// "PATH: FIELD: reason"; parts that do not exist are left out.
ENROLIX_EXPORT std::string refusalText(Refusal const& refusal);
ENROLIX_EXPORT FailureKind failureKind(Refusal const& refusal);
/// Throws a ClientFailure if the response is an error.
ENROLIX_EXPORT void requireSuccess(HttpResponse const& response);

/// Calls `understand`, which reads what the server sent; throws a ClientFailure where it throws an
/// error of the JSON library.
ENROLIX_EXPORT void understanding(std::function<void()> const& understand);

}  // namespace Agent
