/*
 * ravelog_pool.cpp - the event pool buffer both decoders read into (see
 * ravelog_pool.h) and its replaceable allocator cv_poolRealloc.
 */
#include "ravelog_pool.h"

#include <algorithm>
#include <cstdlib>

#include "indgen.h"
#include "ravelog.h"

namespace {

void *system_realloc(void *block, size_t size) { return realloc(block, size); }

/* The first allocation; later ones double. */
constexpr size_t kFirstChunk = 64 * 1024;

} // namespace

void *(*cv_poolRealloc)(void *block, size_t size) = system_realloc;

namespace ravelog {

EventPool::~EventPool() { free(bytes_); }

bool EventPool::ReadMore(FILE *stream, uint32_t total, size_t *asked, size_t *got) {
  *asked = 0;
  *got = 0;
  if (size_ >= total) return true;
  if (size_ == capacity_) {
    const size_t grown = std::min<size_t>(std::max(capacity_ * 2, kFirstChunk), total);
    void *block = cv_poolRealloc(bytes_, grown);
    if (block == nullptr) {
      gen_errorexit(1, "Cannot allocate %u bytes for the event pool.\n" CV_VERIFY_REGION, total);
      return false;
    }
    bytes_ = static_cast<unsigned char *>(block);
    capacity_ = grown;
  }
  *asked = std::min<size_t>(capacity_, total) - size_;
  *got = fread(bytes_ + size_, 1, *asked, stream);
  size_ += *got;
  return true;
}

} // namespace ravelog
