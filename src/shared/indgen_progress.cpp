/*
 * indgen_progress.cpp - the progress line of indgen_progress.h.
 */
#include "indgen_progress.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "indgeninit.h"

namespace {

/* A run shows its progress once it has taken this long, and redraws it at
 * most this often. */
constexpr double kShowAfter = 1.0;
constexpr double kRedrawEvery = 0.1;

double Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace

extern "C" void gen_progress_begin(gen_progress_t *progress, const char *what, uint64_t total) {
  *progress = gen_progress_t{};
  progress->active = total != 0 && isatty(STDERR_FILENO) ? 1 : 0;
  progress->what = what;
  progress->total = total;
  progress->step = std::clamp<uint64_t>(total / 64, 1, 65536);
  progress->next_check = progress->step;
  progress->started = progress->active ? Now() : 0;
}

extern "C" void gen_progress_draw(gen_progress_t *progress, uint64_t done) {
  progress->next_check = done + progress->step;
  const double now = Now();
  if (now - progress->started < kShowAfter || now - progress->last_drawn < kRedrawEvery) return;
  progress->last_drawn = now;
  progress->shown = 1;
  const uint64_t percent = std::min<uint64_t>(100, done * 100 / progress->total);
  const char *name = gen_progname != nullptr ? gen_progname : "";
  fprintf(stderr, "\r%s: %s %3u%%", name, progress->what, static_cast<unsigned>(percent));
  fflush(stderr);
}

extern "C" void gen_progress_end(gen_progress_t *progress) {
  if (progress->shown) {
    fputs("\r\033[K", stderr);
    fflush(stderr);
  }
  progress->active = 0;
  progress->shown = 0;
}
