/*
 * indgen_progress.h - a progress line for long runs: "<program>: <what>
 * 45%" on standard error, redrawn in place.  It appears only when standard
 * error is a terminal and only after the run has taken about a second, so
 * short runs, redirected output and every exact output stay as they are;
 * gen_progress_end erases it.
 *
 * A caller reports how far it got as often as it likes:
 * gen_progress_update costs one comparison until the next time worth a
 * look (every 1/64 of the work, or every 65536 units), and the clock is
 * read only then.
 */
#ifndef RAVELOG_INDGEN_PROGRESS_H
#define RAVELOG_INDGEN_PROGRESS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct gen_progress_t {
  int active;          /* standard error is a terminal and total is nonzero */
  int shown;           /* a line is on the terminal */
  const char *what;    /* what is being done, e.g. "converting" */
  uint64_t total;      /* units of work */
  uint64_t next_check; /* done at which the clock is read next */
  uint64_t step;       /* units between two readings of the clock */
  double started;      /* seconds, monotonic */
  double last_drawn;
} gen_progress_t;

/* Starts a run of `total` units; what must live until gen_progress_end. */
void gen_progress_begin(gen_progress_t *progress, const char *what, uint64_t total);
/* Draws the line when it is due; called by gen_progress_update. */
void gen_progress_draw(gen_progress_t *progress, uint64_t done);
/* Erases the line, if one was drawn. */
void gen_progress_end(gen_progress_t *progress);

/* Reports that `done` units of the run are done. */
static inline void gen_progress_update(gen_progress_t *progress, uint64_t done) {
  if (progress->active && done >= progress->next_check) gen_progress_draw(progress, done);
}

#ifdef __cplusplus
}
#endif

#endif /* RAVELOG_INDGEN_PROGRESS_H */
