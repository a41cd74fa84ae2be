// Trace statements of the registry: facility "Enrolix", source file "EnrolixSm".
#pragma once

#include "framework/trace/trace.h"

namespace Controllerdb {

/// The registry's trace handle: made on first use, off at first, kept until the process exits.
inline NOX_EXPORT Nox::TraceHandle& enrolixTrace() {
  static Nox::TraceHandle handle("Enrolix", false);
  return handle;
}

}  // namespace Controllerdb

// LEVEL and LINE are numbers: the message's level and its line tag, which is the same for good, wherever the statement
// moves. The other arguments are the pieces of the message in order: a string literal is part of its description,
// anything else is a value.

/// A message to the text channel alone: TRACE_TEXT(8, 362, "void f()", " ", switchId());
#define TRACE_TEXT(LEVEL, LINE, ...) \
  NOX_TRACE_TEXT(::Controllerdb::enrolixTrace(), "EnrolixSm", LEVEL, LINE, __VA_ARGS__)

/// The same in a part of the operation FUNCTION, to which the message belongs.
#define TRACE_TEXT_IN(FUNCTION, LEVEL, LINE, ...) \
  NOX_TRACE_TEXT_IN(::Controllerdb::enrolixTrace(), "EnrolixSm", FUNCTION, LEVEL, LINE, __VA_ARGS__)

/// A message to the ring-buffer channel alone.
#define TRACE_RING(LEVEL, LINE, ...) NOX_TRACE_RING("EnrolixSm", LEVEL, LINE, __VA_ARGS__)

/// A message with the same pieces and line tag to the text channel, then to the ring-buffer channel.
#define TRACE(LEVEL, LINE, ...) NOX_TRACE(::Controllerdb::enrolixTrace(), "EnrolixSm", LEVEL, LINE, __VA_ARGS__)

// A message with the same pieces to both channels, under a line tag for each. The name tells the order of the channels.
// FUNCTION is as in TRACE_TEXT_IN.

#define TRACE_TEXT_RING(FUNCTION, LEVEL, TEXT, RING, ...) \
  do {                                                    \
    TRACE_TEXT_IN(FUNCTION, LEVEL, TEXT, __VA_ARGS__);    \
    TRACE_RING(LEVEL, RING, __VA_ARGS__);                 \
  } while (false)
#define TRACE_RING_TEXT(FUNCTION, LEVEL, RING, TEXT, ...) \
  do {                                                    \
    TRACE_RING(LEVEL, RING, __VA_ARGS__);                 \
    TRACE_TEXT_IN(FUNCTION, LEVEL, TEXT, __VA_ARGS__);    \
  } while (false)
