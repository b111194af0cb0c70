/*
 * indgfile_packed.cpp - the GFile encodings beyond the fixed-width values:
 * fixed-width addresses, the integer families in fixed or packed (LEB128)
 * form, strings, target addresses by the file's address mode, alignment
 * pads, four-byte arrays with hd storage and arrays handed out from a
 * memory mapping, and the constant checks.  The byte layouts, with worked
 * examples, are in indgfile.h; every byte goes through indgfile_stream.h.
 */
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>

#include "indgeninit.h"
#include "indgfile.h"
#include "indgfile_stream.h"

using gfile_stream::GetByte;
using gfile_stream::NextByte;
using gfile_stream::PutByte;

namespace {

constexpr uint32_t kAllOnes = 0xFFFFFFFFu;
constexpr uint32_t kOffMask = 0xFFFFu;

bool IsPacked(const GFile *gf) { return gf->packed != 0; }

/* ---- LEB128 ---------------------------------------------------------- */

constexpr uint32_t kGroupBits = 7;
constexpr uint32_t kGroupMask = 0x7Fu;
constexpr uint32_t kMoreFollows = 0x80u;
constexpr uint32_t kSignBitOfGroup = 0x40u;
constexpr uint32_t kValueBits = 32;

void PutUnsignedLeb(GFile *gf, uint32_t value) {
  for (;;) {
    const uint32_t group = value & kGroupMask;
    value >>= kGroupBits;
    if (value == 0) {
      PutByte(gf, group);
      return;
    }
    PutByte(gf, group | kMoreFollows);
  }
}

void PutSignedLeb(GFile *gf, int32_t value) {
  for (;;) {
    const uint32_t group = static_cast<uint32_t>(value) & kGroupMask;
    value >>= kGroupBits; /* arithmetic */
    const bool sign_set = (group & kSignBitOfGroup) != 0;
    if ((value == 0 && !sign_set) || (value == -1 && sign_set)) {
      PutByte(gf, group);
      return;
    }
    PutByte(gf, group | kMoreFollows);
  }
}

/* Gathers groups up to a byte with bit 7 clear.  Returns false when the
 * file ends inside the number.  *bits counts the bits gathered, held at
 * most a group above 32 so a long run of bytes can't overflow it. */
bool GatherLeb(GFile *gf, uint32_t *value, uint32_t *bits, uint32_t *last) {
  *value = 0;
  *bits = 0;
  for (;;) {
    const int byte = NextByte(gf);
    if (byte < 0) return false;
    const uint32_t b = static_cast<uint32_t>(byte);
    if (*bits < kValueBits) {
      *value |= (b & kGroupMask) << *bits;
      *bits += kGroupBits;
    }
    if ((b & kMoreFollows) == 0) {
      *last = b;
      return true;
    }
  }
}

uint32_t GetUnsignedLeb(GFile *gf) {
  uint32_t value, bits, last;
  return GatherLeb(gf, &value, &bits, &last) ? value : 0;
}

int32_t GetSignedLeb(GFile *gf) {
  uint32_t value, bits, last;
  if (!GatherLeb(gf, &value, &bits, &last)) return 0;
  if ((last & kSignBitOfGroup) != 0 && bits < kValueBits) value |= kAllOnes << bits;
  return static_cast<int32_t>(value);
}

/* iss and ind: value + 1 as un, so -1 is one byte. */
void PutIndex(GFile *gf, int32_t value) {
  if (IsPacked(gf)) {
    PutUnsignedLeb(gf, static_cast<uint32_t>(value) + 1);
  } else {
    gf_put_4(gf, static_cast<uint32_t>(value));
  }
}

int32_t GetIndex(GFile *gf) {
  if (IsPacked(gf)) return static_cast<int32_t>(GetUnsignedLeb(gf) - 1);
  return static_cast<int32_t>(gf_get_4(gf));
}

/* A later member of a _2 or _3 form: the difference to the one before. */
void PutNext(GFile *gf, int32_t previous, int32_t value) {
  if (IsPacked(gf)) {
    gf_put_sn(gf,
              static_cast<int32_t>(static_cast<uint32_t>(value) - static_cast<uint32_t>(previous)));
  } else {
    gf_put_4(gf, static_cast<uint32_t>(value));
  }
}

int32_t GetNext(GFile *gf, int32_t previous) {
  if (IsPacked(gf)) {
    return static_cast<int32_t>(static_cast<uint32_t>(previous) +
                                static_cast<uint32_t>(gf_get_sn(gf)));
  }
  return static_cast<int32_t>(gf_get_4(gf));
}

void PutIndex2(GFile *gf, int32_t a, int32_t b) {
  PutIndex(gf, a);
  PutNext(gf, a, b);
}

void GetIndex2(GFile *gf, int32_t *a, int32_t *b) {
  *a = GetIndex(gf);
  *b = GetNext(gf, *a);
}

void PutIndex3(GFile *gf, int32_t a, int32_t b, int32_t c) {
  PutIndex2(gf, a, b);
  PutNext(gf, b, c);
}

void GetIndex3(GFile *gf, int32_t *a, int32_t *b, int32_t *c) {
  GetIndex2(gf, a, b);
  *c = GetNext(gf, *b);
}

}  // namespace

/* ---- Fixed-width addresses ------------------------------------------- */

extern "C" void gf_put_adr16(GFile *gf, uint32_t value) { gf_put_2(gf, value); }
extern "C" uint32_t gf_get_adr16(GFile *gf) { return gf_get_2(gf); }
extern "C" void gf_put_adr32(GFile *gf, uint32_t value) { gf_put_4(gf, value); }
extern "C" uint32_t gf_get_adr32(GFile *gf) { return gf_get_4(gf); }

extern "C" void gf_put_adr64(GFile *gf, const gadr *a) {
  gf_put_4(gf, a->hi);
  gf_put_4(gf, a->lo);
}

extern "C" void gf_get_adr64(GFile *gf, gadr *a) {
  a->hi = gf_get_4(gf);
  a->lo = gf_get_4(gf);
}

/* ---- Integer families ------------------------------------------------ */

extern "C" void gf_put_un(GFile *gf, uint32_t value) {
  if (IsPacked(gf)) {
    PutUnsignedLeb(gf, value);
  } else {
    gf_put_4(gf, value);
  }
}

extern "C" uint32_t gf_get_un(GFile *gf) {
  return IsPacked(gf) ? GetUnsignedLeb(gf) : gf_get_4(gf);
}

extern "C" void gf_put_sn(GFile *gf, int32_t value) {
  if (IsPacked(gf)) {
    PutSignedLeb(gf, value);
  } else {
    gf_put_4(gf, static_cast<uint32_t>(value));
  }
}

extern "C" int32_t gf_get_sn(GFile *gf) {
  return IsPacked(gf) ? GetSignedLeb(gf) : static_cast<int32_t>(gf_get_4(gf));
}

extern "C" void gf_put_iss(GFile *gf, int32_t value) { PutIndex(gf, value); }
extern "C" int32_t gf_get_iss(GFile *gf) { return GetIndex(gf); }
extern "C" void gf_put_ind(GFile *gf, int32_t value) { PutIndex(gf, value); }
extern "C" int32_t gf_get_ind(GFile *gf) { return GetIndex(gf); }

extern "C" void gf_put_iss_2(GFile *gf, int32_t a, int32_t b) { PutIndex2(gf, a, b); }
extern "C" void gf_get_iss_2(GFile *gf, int32_t *a, int32_t *b) { GetIndex2(gf, a, b); }
extern "C" void gf_put_iss_3(GFile *gf, int32_t a, int32_t b, int32_t c) { PutIndex3(gf, a, b, c); }
extern "C" void gf_get_iss_3(GFile *gf, int32_t *a, int32_t *b, int32_t *c) {
  GetIndex3(gf, a, b, c);
}
extern "C" void gf_put_ind_2(GFile *gf, int32_t a, int32_t b) { PutIndex2(gf, a, b); }
extern "C" void gf_get_ind_2(GFile *gf, int32_t *a, int32_t *b) { GetIndex2(gf, a, b); }
extern "C" void gf_put_ind_3(GFile *gf, int32_t a, int32_t b, int32_t c) { PutIndex3(gf, a, b, c); }
extern "C" void gf_get_ind_3(GFile *gf, int32_t *a, int32_t *b, int32_t *c) {
  GetIndex3(gf, a, b, c);
}

/* ---- Strings ------------------------------------------------------------
 */

namespace {

/* Lengths up to this are allocated whole before reading; longer ones grow
 * with the bytes that arrive, a chunk at a time. */
constexpr uint32_t kWholeStringLimit = 64 * 1024;
constexpr size_t kStringChunk = 4096;

/* A gen_alloc'ed copy of bytes with one zero byte behind them. */
char *HeapCopyWithZero(const std::string &bytes) {
  char *copy = static_cast<char *>(gen_alloc(static_cast<unsigned>(bytes.size()) + 1, 1));
  memcpy(copy, bytes.data(), bytes.size());
  return copy;
}

}  // namespace

extern "C" void gf_put_str(GFile *gf, const char *s) {
  if (s == nullptr) {
    gf_put_un(gf, 0);
    return;
  }
  const size_t length = strlen(s) + 1;
  gf_put_un(gf, static_cast<uint32_t>(length));
  gfile_stream::WriteBlock(gf, s, length);
}

extern "C" char *gf_get_str(GFile *gf) {
  const uint32_t length = gf_get_un(gf);
  if (length == 0) return nullptr;
  if (length <= kWholeStringLimit) {
    /* Zeroed, and one byte longer: the bytes that don't arrive stay 0. */
    char *s = static_cast<char *>(gen_alloc(length + 1, 1));
    gfile_stream::ReadBlock(gf, s, length);
    return s;
  }
  std::string bytes;
  char chunk[kStringChunk];
  size_t wanted = length;
  while (wanted > 0) {
    const size_t ask = wanted < sizeof chunk ? wanted : sizeof chunk;
    const size_t got = gfile_stream::ReadBlock(gf, chunk, ask);
    bytes.append(chunk, got);
    wanted -= got;
    if (got < ask) break; /* the end of the file */
  }
  return HeapCopyWithZero(bytes);
}

/* ---- Target addresses ---------------------------------------------------
 */

namespace {

uint32_t OffsetOf(const gadr *a) { return a->lo & kOffMask; }
uint32_t SegmentOf(const gadr *a) { return a->lo >> 16; }

void MakeNil(gadr *a) {
  a->lo = kAllOnes;
  a->hi = kAllOnes;
}

/* An offset read in 16bit: nil, or the low half of lo. */
void StoreOffset(gadr *a, uint32_t off) {
  if (off == kOffMask) {
    MakeNil(a);
  } else {
    a->lo = (a->lo & ~kOffMask) | off;
  }
}

/* A segment and an offset read in 16bit-16seg: nil, or lo. */
void StoreSegmentOffset(gadr *a, uint32_t seg, uint32_t off) {
  if (off == kOffMask) {
    MakeNil(a);
  } else {
    a->lo = (seg & kOffMask) << 16 | off;
  }
}

}  // namespace

extern "C" void gf_put_adr(GFile *gf, const gadr *a) {
  switch (gf->adr_mode) {
    case GADR_MODE_16BIT:
      gf_put_adr16(gf, OffsetOf(a));
      return;
    case GADR_MODE_16BIT_16SEG:
      gf_put_sn(gf, static_cast<int32_t>(SegmentOf(a)));
      gf_put_adr16(gf, OffsetOf(a));
      return;
    case GADR_MODE_32BIT:
      gf_put_adr32(gf, a->lo);
      return;
    case GADR_MODE_64BIT:
      gf_put_adr64(gf, a);
      return;
    default:
      return;
  }
}

extern "C" void gf_get_adr(GFile *gf, gadr *a) {
  switch (gf->adr_mode) {
    case GADR_MODE_16BIT:
      StoreOffset(a, gf_get_adr16(gf));
      return;
    case GADR_MODE_16BIT_16SEG: {
      const uint32_t seg = static_cast<uint32_t>(gf_get_sn(gf));
      StoreSegmentOffset(a, seg, gf_get_adr16(gf));
      return;
    }
    case GADR_MODE_32BIT: {
      const uint32_t lo = gf_get_adr32(gf);
      if (lo == kAllOnes) {
        MakeNil(a);
      } else {
        a->lo = lo;
      }
      return;
    }
    case GADR_MODE_64BIT:
      gf_get_adr64(gf, a);
      return;
    default:
      return;
  }
}

extern "C" void gf_put_adr_2(GFile *gf, const gadr *a, const gadr *b) {
  switch (gf->adr_mode) {
    case GADR_MODE_16BIT:
      gf_put_adr16_2(gf, OffsetOf(a), OffsetOf(b));
      return;
    case GADR_MODE_16BIT_16SEG:
      gf_put_sn(gf, static_cast<int32_t>(SegmentOf(a)));
      gf_put_sn(gf, static_cast<int32_t>(SegmentOf(b)));
      gf_put_adr16_2(gf, OffsetOf(a), OffsetOf(b));
      return;
    case GADR_MODE_32BIT:
      gf_put_adr32_2(gf, a->lo, b->lo);
      return;
    case GADR_MODE_64BIT:
      gf_put_adr64_2(gf, a, b);
      return;
    default:
      return;
  }
}

extern "C" void gf_get_adr_2(GFile *gf, gadr *a, gadr *b) {
  uint16_t off_a = 0;
  uint16_t off_b = 0;
  switch (gf->adr_mode) {
    case GADR_MODE_16BIT:
      gf_get_adr16_2(gf, &off_a, &off_b);
      StoreOffset(a, off_a);
      StoreOffset(b, off_b);
      return;
    case GADR_MODE_16BIT_16SEG: {
      const uint32_t seg_a = static_cast<uint32_t>(gf_get_sn(gf)) & kOffMask;
      const uint32_t seg_b = static_cast<uint32_t>(gf_get_sn(gf)) & kOffMask;
      gf_get_adr16_2(gf, &off_a, &off_b);
      StoreSegmentOffset(a, seg_a, off_a);
      StoreSegmentOffset(b, seg_b, off_b);
      return;
    }
    case GADR_MODE_32BIT:
      gf_get_adr32_2(gf, a, b);
      if (a->lo == kAllOnes) a->hi = kAllOnes;
      if (b->lo == kAllOnes) b->hi = kAllOnes;
      return;
    case GADR_MODE_64BIT:
      gf_get_adr64_2(gf, a, b);
      return;
    default:
      return;
  }
}

extern "C" void gf_put_adr16_2(GFile *gf, uint32_t first, uint32_t second) {
  const uint32_t first16 = first & kOffMask;
  const uint32_t second16 = second & kOffMask;
  gf_put_adr16(gf, first16);
  if (IsPacked(gf)) {
    gf_put_sn(gf, static_cast<int32_t>(second16) - static_cast<int32_t>(first16));
  } else {
    gf_put_adr16(gf, second16);
  }
}

extern "C" void gf_get_adr16_2(GFile *gf, uint16_t *first, uint16_t *second) {
  const uint32_t first16 = gf_get_adr16(gf);
  *first = static_cast<uint16_t>(first16);
  if (IsPacked(gf)) {
    *second = static_cast<uint16_t>((first16 + static_cast<uint32_t>(gf_get_sn(gf))) & kOffMask);
  } else {
    *second = static_cast<uint16_t>(gf_get_adr16(gf));
  }
}

extern "C" void gf_put_adr32_2(GFile *gf, uint32_t first, uint32_t second) {
  gf_put_adr32(gf, first);
  if (IsPacked(gf)) {
    gf_put_sn(gf, static_cast<int32_t>(second - first));
  } else {
    gf_put_adr32(gf, second);
  }
}

extern "C" void gf_get_adr32_2(GFile *gf, gadr *first, gadr *second) {
  const uint32_t lo = gf_get_adr32(gf);
  first->lo = lo;
  second->lo = IsPacked(gf) ? lo + static_cast<uint32_t>(gf_get_sn(gf)) : gf_get_adr32(gf);
}

extern "C" void gf_put_adr64_2(GFile *gf, const gadr *first, const gadr *second) {
  gf_put_adr64(gf, first);
  if (IsPacked(gf)) {
    gf_put_sn(gf, static_cast<int32_t>(second->hi - first->hi));
    gf_put_sn(gf, static_cast<int32_t>(second->lo - first->lo));
  } else {
    gf_put_adr64(gf, second);
  }
}

extern "C" void gf_get_adr64_2(GFile *gf, gadr *first, gadr *second) {
  gadr read;
  gf_get_adr64(gf, &read);
  *first = read;
  if (IsPacked(gf)) {
    const uint32_t hi = read.hi + static_cast<uint32_t>(gf_get_sn(gf));
    const uint32_t lo = read.lo + static_cast<uint32_t>(gf_get_sn(gf));
    second->hi = hi;
    second->lo = lo;
  } else {
    gf_get_adr64(gf, second);
  }
}

/* ---- Alignment pads -------------------------------------------------- */

namespace {

constexpr uint32_t kLargestAlignment = 64;
constexpr uint32_t kPadBase = 0xAA; /* a pad of p bytes starts with kPadBase + p */
static_assert(kPadBase + kLargestAlignment - 1 <= 0xFF, "every pad byte fits a byte");

/* The length of the pad at the current position, or -1 when there is none
 * to be had (gf_tell failed and has reported). */
int32_t PadLength(GFile *gf, uint32_t alignment) {
  if (alignment <= 1 || alignment > kLargestAlignment || !std::has_single_bit(alignment)) {
    return 0;
  }
  const int32_t position = gf_tell(gf, nullptr);
  if (position == -1) return -1;
  const uint32_t past = static_cast<uint32_t>(position) & (alignment - 1);
  return past == 0 ? 0 : static_cast<int32_t>(alignment - past);
}

}  // namespace

extern "C" void gf_put_alignpad(GFile *gf, uint32_t alignment) {
  for (int32_t p = PadLength(gf, alignment); p > 0; p--) {
    PutByte(gf, kPadBase + static_cast<uint32_t>(p));
  }
}

extern "C" void gf_get_alignpad(GFile *gf, uint32_t alignment) {
  for (int32_t p = PadLength(gf, alignment); p > 0; p--) {
    if (GetByte(gf) != kPadBase + static_cast<uint32_t>(p)) gf_set_alignpad_error(gf);
  }
}

/* ---- Arrays ---------------------------------------------------------- */

namespace {

constexpr uint32_t kWordSize = 4;
constexpr bool kHostIsBigEndian = std::endian::native == std::endian::big;
static_assert(kHostIsBigEndian || std::endian::native == std::endian::little,
              "words are either big-endian or little-endian");

bool HasHdStorage(const GFile *gf) { return gf->hd_storage != 0; }

bool HasMapping(const GFile *gf) {
  return gf->map_addr != gf_get_nil_file_memory_mapping_handle() && gf->map_addr != nullptr;
}

/* The start of `bytes` bytes at the current position inside the mapping,
 * or null when they don't lie wholly in it (or gf_tell failed). */
const uint8_t *MappedBytesHere(GFile *gf, uint64_t bytes) {
  const int32_t position = gf_tell(gf, nullptr);
  if (position < 0) return nullptr;
  if (static_cast<uint64_t>(position) + bytes > gf->map_len) return nullptr;
  return static_cast<const uint8_t *>(gf->map_addr) + position;
}

/* Moves `bytes` forward from the current position. */
void SkipBytes(GFile *gf, uint64_t bytes) {
  const int32_t position = gf_tell(gf, nullptr);
  if (position == -1) return;
  /* Positions are 32-bit: the sum wraps like one. */
  gf_seek(gf, static_cast<int32_t>(static_cast<uint32_t>(position) + static_cast<uint32_t>(bytes)));
}

uint32_t SwapWord(uint32_t word) {
  return (word >> 24) | ((word >> 8) & 0xFF00u) | ((word << 8) & 0xFF0000u) | (word << 24);
}

/* Writes n words from memory as big-endian raw words: straight on a
 * big-endian host, converted through a stack buffer otherwise. */
void WriteBigEndianWords(GFile *gf, const uint32_t *buf, uint32_t n) {
  if constexpr (kHostIsBigEndian) {
    gfile_stream::WriteBlock(gf, buf, static_cast<size_t>(n) * kWordSize);
  } else {
    uint32_t chunk[256];
    constexpr uint32_t kChunkWords = sizeof chunk / sizeof chunk[0];
    while (n > 0) {
      const uint32_t count = n < kChunkWords ? n : kChunkWords;
      for (uint32_t i = 0; i < count; i++) chunk[i] = SwapWord(buf[i]);
      gfile_stream::WriteBlock(gf, chunk, static_cast<size_t>(count) * kWordSize);
      buf += count;
      n -= count;
    }
  }
}

}  // namespace

extern "C" void gf_get_mapped_array_1(GFile *gf, const uint8_t **ptr, uint32_t n) {
  if (n == 0) return;
  const uint8_t *start = HasMapping(gf) ? MappedBytesHere(gf, n) : nullptr;
  *ptr = start;
  if (start == nullptr) {
    gf_set_file_memory_mapping_error(gf);
    return;
  }
  SkipBytes(gf, n);
}

extern "C" void gf_put_array_4(GFile *gf, const uint32_t *buf, uint32_t n) {
  if (n == 0) return;
  if (!HasHdStorage(gf)) {
    for (uint32_t i = 0; i < n; i++) gf_put_4(gf, buf[i]);
    return;
  }
  gf_put_alignpad(gf, kWordSize);
  WriteBigEndianWords(gf, buf, n);
}

extern "C" void gf_get_array_4(GFile *gf, uint32_t *buf, uint32_t n) {
  if (n == 0) return;
  if (!HasHdStorage(gf)) {
    for (uint32_t i = 0; i < n; i++) buf[i] = gf_get_4(gf);
    return;
  }
  gf_get_alignpad(gf, kWordSize);
  gfile_stream::ReadBlock(gf, buf, static_cast<size_t>(n) * kWordSize);
  if (gf->swapped) gf_swap_array_4(buf, n);
}

extern "C" void gf_get_mapped_array_4(GFile *gf, const uint32_t **ptr, uint32_t n) {
  if (n == 0) return;
  if (!HasMapping(gf) || !HasHdStorage(gf)) {
    *ptr = nullptr;
    gf_set_file_memory_mapping_error(gf);
    return;
  }
  gf_get_alignpad(gf, kWordSize);
  const uint64_t bytes = static_cast<uint64_t>(n) * kWordSize;
  const uint8_t *start = MappedBytesHere(gf, bytes);
  /* The pad put the position, and so start, on a multiple of 4; the
   * mapping itself starts on a page. */
  *ptr = reinterpret_cast<const uint32_t *>(start);
  if (start == nullptr) {
    gf_set_file_memory_mapping_error(gf);
    return;
  }
  SkipBytes(gf, bytes);
}

extern "C" void gf_skip_array_4(GFile *gf, uint32_t n) {
  if (n == 0) return;
  if (!HasHdStorage(gf)) {
    /* n times gf_get_4.  Once a read meets the end of the file every later
     * one meets it again (the indicator stays until a seek) and moves
     * nothing, so the pass ends there: a count of billions costs no more
     * than the words the file holds. */
    for (uint32_t i = 0; i < n && !gf_hit_end(gf); i++) gf_get_4(gf);
    return;
  }
  gf_get_alignpad(gf, kWordSize);
  SkipBytes(gf, static_cast<uint64_t>(n) * kWordSize);
}

extern "C" void gf_swap_array_4(uint32_t *buf, uint32_t n) {
  for (uint32_t i = 0; i < n; i++) buf[i] = SwapWord(buf[i]);
}

/* ---- Constant checks ------------------------------------------------- */

extern "C" void gf_put_uc(GFile *gf, uint32_t value, uint32_t expected) {
  if (value != expected) gf_set_constval_error(gf);
}

extern "C" void gf_put_sc(GFile *gf, int32_t value, int32_t expected) {
  if (value != expected) gf_set_constval_error(gf);
}
