/*
 * ravelog_pool.cpp - the event pool buffer both decoders read into (see
 * ravelog_pool.h) and its replaceable allocator cv_poolRealloc.
 */
#include "ravelog_pool.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

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

EventPool::~EventPool() {
  if (mapping_ != nullptr) {
    munmap(mapping_, mappingLength_);
  } else {
    free(bytes_);
  }
}

bool EventPool::MapWhole(FILE *stream, uint32_t total) {
  if (bytes_ != nullptr || total < kMapFrom) return false;
  const int fd = fileno(stream);
  const long position = fd < 0 ? -1 : ftell(stream);
  struct stat status {};
  if (position < 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (status.st_size < position || static_cast<uint64_t>(status.st_size - position) < total) return false;

  /* A mapping starts at a page boundary; the pool lies `lead` bytes in. */
  const long page = sysconf(_SC_PAGESIZE);
  if (page <= 0) return false;
  const auto lead = static_cast<size_t>(position % page);
  const size_t length = lead + total;
  void *mapped = mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd,
                      static_cast<off_t>(position - static_cast<long>(lead)));
  if (mapped == MAP_FAILED) return false;
  if (fseek(stream, position + static_cast<long>(total), SEEK_SET) != 0) {
    munmap(mapped, length);
    return false;
  }
  mapping_ = mapped;
  mappingLength_ = length;
  bytes_ = static_cast<unsigned char *>(mapped) + lead;
  capacity_ = total;
  size_ = total;
  return true;
}

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
