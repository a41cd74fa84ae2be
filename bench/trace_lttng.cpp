// The code that LTTng makes of the events in trace_lttng.h.
#ifdef BENCH_HAS_LTTNG
#pragma GCC diagnostic ignored "-Wpedantic"
#pragma GCC diagnostic ignored "-Wshadow"
#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "bench/trace_lttng.h"
#endif
