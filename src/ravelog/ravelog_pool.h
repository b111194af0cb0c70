/*
 * ravelog_pool.h - the event pool buffer that both decoders read a log's
 * event pool into.  C++ and internal to the dump conversion: only
 * ravelog_v1.cpp and ravelog_v2.cpp include it.  The C interface of the
 * dump conversion is ravelog.h.
 *
 * The buffer grows only as bytes arrive from the file, so a header that
 * claims an absurd pool size costs no more memory than the file really
 * holds.  Each decoder keeps its own rule about short reads; the buffer only
 * says how many bytes a read asked for and how many it gave.
 *
 * A large pool that a regular file holds whole is not read at all: the
 * buffer is a read-only private mapping of the file's pages.  Reading
 * hundreds of MiB into fresh memory costs far more than the conversion's
 * own work (every page is zeroed, then copied into), while the mapping
 * shares the pages the kernel already holds.  The decoders see one buffer
 * of the pool's bytes either way.
 */
#ifndef RAVELOG_RAVELOG_POOL_H
#define RAVELOG_RAVELOG_POOL_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace ravelog {

class EventPool {
 public:
  EventPool() = default;
  ~EventPool();
  EventPool(const EventPool &) = delete;
  EventPool &operator=(const EventPool &) = delete;

  /* Reads the next part of a pool of `total` bytes from the stream.  Makes
   * room for more of the bytes still missing (growing by doubling, never
   * beyond total) through cv_poolRealloc, then reads once, asking for as
   * many missing bytes as fit.  Sets *asked to the number asked for (0 when
   * the pool is already complete; no read is made then) and *got to the
   * number the read gave.  Returns false when the allocator refuses: that
   * fails with "Cannot allocate %u bytes for the event pool." and false
   * comes back only if a replaced gen_exit returns. */
  bool ReadMore(FILE *stream, uint32_t total, size_t *asked, size_t *got);

  /* Takes the whole pool of `total` bytes, from the stream's position on,
   * as a mapping of the file, and moves the stream behind it.  Only for an
   * empty buffer and a pool of at least kMapFrom bytes in a regular file
   * that holds all of them; false, with nothing changed, otherwise or when
   * the mapping fails, and the caller reads the pool through ReadMore. */
  bool MapWhole(FILE *stream, uint32_t total);

  /* The smallest pool that MapWhole maps: smaller ones read fast enough. */
  static constexpr uint32_t kMapFrom = 1u << 20;

  /* Bytes held so far, at bytes()[0] up to bytes()[size() - 1].  The
   * pointer is null while nothing is held and stays valid until the next
   * ReadMore or the pool's end. */
  unsigned char *bytes() { return bytes_; }
  size_t size() const { return size_; }

 private:
  unsigned char *bytes_ = nullptr; /* from cv_poolRealloc, released with free,
                                      or inside the mapping */
  size_t capacity_ = 0;            /* bytes allocated */
  size_t size_ = 0;                /* bytes read into it, size_ <= capacity_ */
  void *mapping_ = nullptr;        /* the mapping that holds the pool, or null */
  size_t mappingLength_ = 0;       /* its length, from a page boundary */
};

} // namespace ravelog

#endif /* RAVELOG_RAVELOG_POOL_H */
