// The two LTTng events of the trace section: one that no session records, and one that the session of script/bench
// does.
#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER enrolix_bench
#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "bench/trace_lttng.h"

// LTTng reads this file more than once.
#if !defined(BENCH_TRACE_LTTNG_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define BENCH_TRACE_LTTNG_H

#include <lttng/tracepoint.h>

// clang-format off
LTTNG_UST_TRACEPOINT_EVENT(enrolix_bench, off,
  LTTNG_UST_TP_ARGS(char const*, peer, unsigned, generation),
  LTTNG_UST_TP_FIELDS(
    lttng_ust_field_string(peer, peer)
    lttng_ust_field_integer(unsigned, generation, generation)))
LTTNG_UST_TRACEPOINT_EVENT(enrolix_bench, on,
  LTTNG_UST_TP_ARGS(char const*, peer, unsigned, generation),
  LTTNG_UST_TP_FIELDS(
    lttng_ust_field_string(peer, peer)
    lttng_ust_field_integer(unsigned, generation, generation)))
// clang-format on

#endif

#include <lttng/tracepoint-event.h>
