/*
 * tx_user.h - how the trace demo builds the kernel: event tracing on, and
 * the trace's time stamps from the demo's own microsecond clock
 * (tracedemo_trace_time in tracedemo.c) instead of the port's nanosecond
 * field, which falls back to 0 every second and so can't be carried over.
 * The kernel includes this file first of all (TX_INCLUDE_USER_DEFINE_FILE),
 * before its own types exist, hence the plain C types.
 */
#ifndef TRACEDEMO_TX_USER_H
#define TRACEDEMO_TX_USER_H

#define TX_ENABLE_EVENT_TRACE

/* Microseconds of the monotonic clock, from the start the demo was told,
 * modulo 2^32: a full 32-bit counter that wraps every 71.6 minutes. */
unsigned int tracedemo_trace_time(void);
#define TX_TRACE_TIME_SOURCE ((ULONG) tracedemo_trace_time())
#define TX_TRACE_TIME_MASK 0xFFFFFFFFUL

#endif /* TRACEDEMO_TX_USER_H */
