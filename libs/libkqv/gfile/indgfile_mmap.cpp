/*
 * indgfile_mmap.cpp - read-only memory mapping of a GFile that was opened
 * for read, and the test whether arrays can be handed out straight from the
 * mapping.  The contracts are in indgfile.h.
 */
#include <sys/mman.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>

#include "indgeninit.h"
#include "indgfile.h"

namespace {

void *const kNoMapping = MAP_FAILED;
constexpr uint32_t kNoLength = UINT32_MAX;

/* Maps the whole stream read-only; kNoMapping when that can't be done. */
void *MapWholeFile(FILE *fp, uint32_t *length) {
  const int fd = fileno(fp);
  if (fd == -1) return kNoMapping;
  struct stat status;
  if (fstat(fd, &status) != 0) return kNoMapping;
  if (status.st_size <= 0 || static_cast<uint64_t>(status.st_size) >= kNoLength) {
    return kNoMapping;
  }
  const size_t size = static_cast<size_t>(status.st_size);
  void *addr = mmap(nullptr, size, PROT_READ, MAP_SHARED | MAP_NORESERVE, fd, 0);
  if (addr == MAP_FAILED) return kNoMapping;
  *length = static_cast<uint32_t>(size);
  return addr;
}

}  // namespace

extern "C" void *gf_get_nil_file_memory_mapping_handle(void) { return kNoMapping; }

extern "C" void *gf_open_memory_mapping(GFile *gf, uint8_t close_with_file, void **addr,
                                        uint32_t *len) {
  void *mapped = kNoMapping;
  uint32_t length = kNoLength;
  if (gf != nullptr) {
    if (gf->owns_mapping) gf_close_memory_mapping(gf, kNoMapping, kNoLength);
    if (gf->fp != nullptr && !gf->writing && gf->base == 0) mapped = MapWholeFile(gf->fp, &length);
    if (mapped == kNoMapping) length = kNoLength;
    gf->map_addr = mapped;
    gf->map_len = length;
    gf->owns_mapping = close_with_file != 0 && mapped != kNoMapping ? 1 : 0;
  }
  if (addr != nullptr) {
    *addr = mapped;
    if (len != nullptr) *len = length;
  }
  return mapped;
}

extern "C" void gf_close_memory_mapping(GFile *gf, void *addr, uint32_t len) {
  if (addr == kNoMapping && gf != nullptr) {
    addr = gf->map_addr;
    len = gf->map_len;
  }
  if (addr == kNoMapping || addr == nullptr) return;
  const bool is_records = gf != nullptr && gf->map_addr == addr;
  if (len == kNoLength) {
    if (!is_records) return;  // an unknown length must not unmap at random
    len = gf->map_len;
  }
  munmap(addr, len);
  if (is_records) {
    gf->map_addr = kNoMapping;
    gf->map_len = kNoLength;
    gf->owns_mapping = 0;
  }
}

extern "C" int gf_can_memory_map_array(const GFile *gf, int element_size) {
  /* A cleared record (never opened, or a failed open) holds null. */
  if (gf == nullptr || gf->map_addr == kNoMapping || gf->map_addr == nullptr) return 0;
  if (element_size != 1 && element_size != 4) {
    gen_warning("GFile: [gf_can_map_hd_storage]: invalid array element size");
    return 0;
  }
  if (gf->base != 0 && gf->base % element_size != 0) return 0;
  if (element_size == 1) return 1;
  return gf->hd_storage != 0 && gf->swapped == 0 ? 1 : 0;
}
