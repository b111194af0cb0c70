/*
 * tracedemo.c - a small application on the ThreadX kernel's Linux port that
 * records its own run in the kernel's trace buffer, for the tests of the
 * trace buffer conversion: a producer, a consumer and a waiter pass work
 * through a queue, a semaphore and a mutex (with priority inheritance), a
 * worker sleeps and yields, one thread suspends itself for good, and a
 * monitor of the highest priority ends the run.  When the run time is over
 * the monitor locks out interrupts, stops the trace, asks the kernel about
 * every thread (tx_thread_info_get) and writes what it said as JSON, then
 * writes the trace memory's bytes as they stand, and ends the process.
 *
 * usage: tracedemo BUFFER_BYTES RUN_MS TRACE_FILE INFO_FILE [CLOCK_START]
 *   BUFFER_BYTES  size of the trace memory (header, registry and entries)
 *   RUN_MS        how long the threads run, in milliseconds
 *   TRACE_FILE    where the trace memory's bytes go
 *   INFO_FILE     where the kernel's view of each thread goes (JSON)
 *   CLOCK_START   the trace clock's value at the start (default 0), so that
 *                 a run can cross the 32-bit wrap of its time stamps
 * Exit status 0 after both files are written, 1 on bad arguments, 2 when
 * the kernel refuses a call or a file can't be written.
 */
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "tx_api.h"

#define STACK_BYTES 4096
#define REGISTRY_ENTRIES 16
#define MESSAGE_WORDS 1
#define QUEUE_MESSAGES 4
#define USER_EVENT_PROGRESS (TX_TRACE_USER_EVENT_START + 1)

/* ---- The run's settings, from the command line ---------------------------- */

static unsigned long bufferBytes;
static unsigned long runMilliseconds;
static const char *traceFile;
static const char *infoFile;
static unsigned char *traceMemory;
static unsigned int clockOffset;
static unsigned long bufferWraps;

/* ---- The trace clock ------------------------------------------------------- */

static unsigned int monotonic_microseconds(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return (unsigned int) ((unsigned long long) now.tv_sec * 1000000u + (unsigned long long) now.tv_nsec / 1000u);
}

unsigned int tracedemo_trace_time(void) { return monotonic_microseconds() + clockOffset; }

/* ---- The threads and what they share --------------------------------------- */

static TX_THREAD monitor, producer, consumer, waiter, worker, sleeper;
static ULONG stacks[6][STACK_BYTES / sizeof(ULONG)];
static TX_QUEUE workQueue;
static ULONG queueStorage[QUEUE_MESSAGES * MESSAGE_WORDS];
static TX_SEMAPHORE batchDone;
static TX_MUTEX sharedTotal;
static ULONG total;

static void fail(const char *what, UINT status) {
  fprintf(stderr, "tracedemo: %s failed with status 0x%x\n", what, status);
  exit(2);
}

static void check(const char *what, UINT status) {
  if (status != TX_SUCCESS) fail(what, status);
}

/* Sends numbered messages, four a tick, and marks every sixteenth with a
 * user event. */
static void producer_entry(ULONG input) {
  (void) input;
  for (ULONG message = 1;; message++) {
    check("tx_queue_send", tx_queue_send(&workQueue, &message, TX_WAIT_FOREVER));
    if (message % 16 == 0) tx_trace_user_event_insert(USER_EVENT_PROGRESS, message, total, 0, 0);
    if (message % 4 == 0) tx_thread_sleep(1);
  }
}

/* Takes each message, adds it to the total under the mutex, and tells the
 * waiter about every eighth. */
static void consumer_entry(ULONG input) {
  (void) input;
  for (;;) {
    ULONG message;
    check("tx_queue_receive", tx_queue_receive(&workQueue, &message, TX_WAIT_FOREVER));
    check("tx_mutex_get", tx_mutex_get(&sharedTotal, TX_WAIT_FOREVER));
    total += message;
    check("tx_mutex_put", tx_mutex_put(&sharedTotal));
    if (message % 8 == 0) check("tx_semaphore_put", tx_semaphore_put(&batchDone));
  }
}

/* Waits for a batch, then holds the mutex across a sleep, so that the
 * consumer, of higher priority, waits for it and lends it its priority. */
static void waiter_entry(ULONG input) {
  (void) input;
  for (;;) {
    check("tx_semaphore_get", tx_semaphore_get(&batchDone, TX_WAIT_FOREVER));
    check("tx_mutex_get", tx_mutex_get(&sharedTotal, TX_WAIT_FOREVER));
    tx_thread_sleep(2);
    check("tx_mutex_put", tx_mutex_put(&sharedTotal));
  }
}

/* Works for 12 ms at a time, longer than a tick, so that the timer's
 * interrupt comes in while it runs and the threads it wakes preempt it;
 * then gives way to its equals and sleeps. */
static void worker_entry(ULONG input) {
  (void) input;
  for (ULONG round = 0;; round++) {
    const unsigned int start = monotonic_microseconds();
    while (monotonic_microseconds() - start < 12000) {
    }
    tx_thread_relinquish();
    tx_thread_sleep(round % 3 + 1);
  }
}

/* Runs once and suspends itself for good. */
static void sleeper_entry(ULONG input) {
  (void) input;
  tx_thread_suspend(&sleeper);
}

/* ---- The monitor: the end of the run ----------------------------------------- */

static const char *name_or_blank(const CHAR *name) { return name != TX_NULL ? name : ""; }

/* One JSON object a thread, in the kernel's order of creation. */
static void write_thread_info(FILE *out) {
  fprintf(out, "{\"ticks_per_second\": 1000000, \"buffer_wraps\": %lu, \"threads\": [", bufferWraps);
  TX_THREAD *thread = &monitor;
  const char *separator = "";
  do {
    CHAR *name;
    UINT state, priority, threshold;
    ULONG runCount, slice;
    TX_THREAD *next, *suspendedNext;
    check("tx_thread_info_get", tx_thread_info_get(thread, &name, &state, &runCount, &priority,
                                                   &threshold, &slice, &next, &suspendedNext));
    fprintf(out, "%s\n  {\"id\": %lu, \"name\": \"%s\", \"state\": %u, \"priority\": %u, \"run_count\": %lu}",
            separator, (unsigned long) (ULONG) (uintptr_t) thread, name_or_blank(name), state, priority, runCount);
    separator = ",";
    thread = next;
  } while (thread != &monitor);
  fprintf(out, "\n]}\n");
}

static void write_file(const char *path, const void *bytes, size_t size, void (*writer)(FILE *)) {
  FILE *out = fopen(path, "wb");
  if (out == NULL) fail(path, 0);
  if (writer != NULL) writer(out);
  if (bytes != NULL && fwrite(bytes, 1, size, out) != size) fail(path, 0);
  if (fclose(out) != 0) fail(path, 0);
}

/* Sleeps through the run and takes the mutex, so that no thread runs on a
 * priority lent to it through the mutex when the kernel is asked (a loan to
 * a suspended thread leaves no entry in the trace; the return of the loan
 * does).  Then, with interrupts locked out so that no thread changes from
 * here on, stops the trace, writes what the kernel says about each thread
 * and the trace memory, and ends the process. */
static void monitor_entry(ULONG input) {
  (void) input;
  tx_thread_sleep((ULONG) (runMilliseconds * TX_TIMER_TICKS_PER_SECOND / 1000));
  check("tx_mutex_get", tx_mutex_get(&sharedTotal, TX_WAIT_FOREVER));
  tx_interrupt_control(TX_INT_DISABLE);
  check("tx_trace_disable", tx_trace_disable());
  write_file(infoFile, NULL, 0, write_thread_info);
  write_file(traceFile, traceMemory, bufferBytes, NULL);
  exit(0);
}

static void count_wrap(VOID *header) {
  (void) header;
  bufferWraps++;
}

/* ---- Start-up ---------------------------------------------------------------- */

static void create_thread(TX_THREAD *thread, const char *name, void (*entry)(ULONG), UINT priority,
                          int stack) {
  check("tx_thread_create", tx_thread_create(thread, (CHAR *) name, entry, 0, stacks[stack],
                                             sizeof stacks[stack], priority, priority,
                                             TX_NO_TIME_SLICE, TX_AUTO_START));
}

void tx_application_define(void *firstUnusedMemory) {
  (void) firstUnusedMemory;
  create_thread(&monitor, "monitor", monitor_entry, 1, 0);
  create_thread(&consumer, "consumer", consumer_entry, 6, 1);
  create_thread(&producer, "producer", producer_entry, 8, 2);
  create_thread(&waiter, "waiter", waiter_entry, 10, 3);
  create_thread(&worker, "worker", worker_entry, 12, 4);
  create_thread(&sleeper, "sleeper that suspends itself for good", sleeper_entry, 14, 5);
  check("tx_queue_create", tx_queue_create(&workQueue, "work", MESSAGE_WORDS, queueStorage,
                                           sizeof queueStorage));
  check("tx_semaphore_create", tx_semaphore_create(&batchDone, "batch done", 0));
  check("tx_mutex_create", tx_mutex_create(&sharedTotal, "shared total", TX_INHERIT));
  check("tx_trace_enable", tx_trace_enable(traceMemory, bufferBytes, REGISTRY_ENTRIES));
  check("tx_trace_buffer_full_notify", tx_trace_buffer_full_notify(count_wrap));
}

/* The port simulates one processor: the process keeps to the first
 * processor it may use. */
static void keep_to_one_processor(void) {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
  for (int cpu = 0; cpu < CPU_SETSIZE; cpu++) {
    if (!CPU_ISSET(cpu, &allowed)) continue;
    CPU_ZERO(&allowed);
    CPU_SET(cpu, &allowed);
    sched_setaffinity(0, sizeof allowed, &allowed);
    return;
  }
}

int main(int argc, char **argv) {
  if (argc != 5 && argc != 6) {
    fprintf(stderr, "usage: tracedemo BUFFER_BYTES RUN_MS TRACE_FILE INFO_FILE [CLOCK_START]\n");
    return 1;
  }
  bufferBytes = strtoul(argv[1], NULL, 0);
  runMilliseconds = strtoul(argv[2], NULL, 0);
  traceFile = argv[3];
  infoFile = argv[4];
  const unsigned int clockStart = argc == 6 ? (unsigned int) strtoul(argv[5], NULL, 0) : 0;
  traceMemory = calloc(1, bufferBytes);
  if (bufferBytes == 0 || traceMemory == NULL) {
    fprintf(stderr, "tracedemo: no trace memory of %lu bytes\n", bufferBytes);
    return 1;
  }
  clockOffset = clockStart - monotonic_microseconds();
  keep_to_one_processor();
  tx_kernel_enter();
  return 0;
}
