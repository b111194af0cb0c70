/*
 * indgfile.cpp - GFile streams: opening with the header written or checked,
 * closing, positions relative to the header, and the sticky error state
 * with its once-only message.  The header layout and the states are drawn
 * in indgfile.h; the values are in indgfile_values.cpp, memory mapping in
 * indgfile_mmap.cpp.
 */
#include "indgfile.h"

#include <sys/stat.h>

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "indgen_string.h"
#include "indgeninit.h"
#include "indgfile_stream.h"
#include "indview.h"

/* ---- Layout checks ------------------------------------------------------ */

namespace {

/* The fields of the record keep the order and widths of indgfile.h. */
#define GF_FIELD_BEFORE(a, b) (offsetof(GFile, a) < offsetof(GFile, b))
static_assert(GF_FIELD_BEFORE(fp, name) && GF_FIELD_BEFORE(name, version) &&
                  GF_FIELD_BEFORE(version, file_type) && GF_FIELD_BEFORE(file_type, packed) &&
                  GF_FIELD_BEFORE(packed, adr_mode) && GF_FIELD_BEFORE(adr_mode, descriptors) &&
                  GF_FIELD_BEFORE(descriptors, swapped) && GF_FIELD_BEFORE(swapped, map_addr) &&
                  GF_FIELD_BEFORE(map_addr, map_len) && GF_FIELD_BEFORE(map_len, base) &&
                  GF_FIELD_BEFORE(base, descriptor_error) &&
                  GF_FIELD_BEFORE(descriptor_error, constval_error) &&
                  GF_FIELD_BEFORE(constval_error, alignpad_error) &&
                  GF_FIELD_BEFORE(alignpad_error, file_memory_mapping_error) &&
                  GF_FIELD_BEFORE(file_memory_mapping_error, owns_fp) &&
                  GF_FIELD_BEFORE(owns_fp, owns_mapping) &&
                  GF_FIELD_BEFORE(owns_mapping, got_error) && GF_FIELD_BEFORE(got_error, writing) &&
                  GF_FIELD_BEFORE(writing, owns_record) && GF_FIELD_BEFORE(owns_record, hd_storage) &&
                  GF_FIELD_BEFORE(hd_storage, write_map),
              "GFile fields are in the documented order");
#undef GF_FIELD_BEFORE
#define GF_FIELD_SIZE(field) sizeof(static_cast<GFile *>(nullptr)->field)
static_assert(GF_FIELD_SIZE(version) == 4 && GF_FIELD_SIZE(file_type) == 4 &&
                  GF_FIELD_SIZE(packed) == 4 && GF_FIELD_SIZE(adr_mode) == 4 &&
                  GF_FIELD_SIZE(map_len) == 4 && GF_FIELD_SIZE(base) == 4 &&
                  GF_FIELD_SIZE(descriptors) == 1 && GF_FIELD_SIZE(swapped) == 1 &&
                  GF_FIELD_SIZE(got_error) == 1 && GF_FIELD_SIZE(hd_storage) == 1,
              "GFile fields have the documented widths");
#undef GF_FIELD_SIZE

/* The header, field by field: magic 4, version 4, file type 4, packed 4,
 * then four single bytes. */
constexpr unsigned char kMagic[4] = {0x7F, 'T', 'O', 'V'};
constexpr int kHeaderWords = 3;
constexpr int kHeaderSingleBytes = 4;
static_assert(sizeof kMagic + 4 * kHeaderWords + kHeaderSingleBytes == GF_HEADER_SIZE,
              "the header fields fill the 20 header bytes");

/* gf_open_for_read's placeholders for the write-only arguments. */
constexpr int32_t kReadPlaceholderMode = GADR_MODE_32BIT;

constexpr const char *kDescriptorsNotSupported = "GFile desciptors not supported";

/* ---- Opening -------------------------------------------------------------- */

/* The header bytes as read, before any test. */
struct HeaderFields {
  unsigned char magic[4];
  int32_t version;
  uint32_t file_type;
  uint32_t packed;
  int32_t adr_mode;
  uint32_t descriptors;
  uint32_t hd_storage;
  uint32_t reserved;
};

void WriteHeader(GFile *gf, uint32_t file_type, uint32_t packed, int32_t adr_mode,
                 uint8_t hd_storage) {
  for (unsigned char byte : kMagic) gf_put_1(gf, byte);
  gf_put_4(gf, GF_FORMAT_VERSION);
  gf_put_4(gf, file_type);
  gf_put_4(gf, packed);
  gf_put_1(gf, static_cast<uint32_t>(gadr_encoding_from_mode(adr_mode)));
  gf_put_1(gf, 0);  // descriptors are never written
  gf_put_1(gf, hd_storage != 0 ? GF_HD_STORAGE_BIG_ENDIAN : GF_HD_STORAGE_NONE);
  gf_put_1(gf, 0);  // reserved
}

/* Reads all 20 bytes, whatever they hold; the encoding is turned into a
 * mode at once (with its own message when it is unknown). */
HeaderFields ReadHeader(GFile *gf) {
  HeaderFields header{};
  for (unsigned char &byte : header.magic) byte = static_cast<unsigned char>(gf_get_1(gf));
  header.version = static_cast<int32_t>(gf_get_4(gf));
  header.file_type = gf_get_4(gf);
  header.packed = gf_get_4(gf);
  header.adr_mode = gadr_mode_from_encoding(static_cast<int>(gf_get_1(gf)));
  header.descriptors = gf_get_1(gf);
  header.hd_storage = gf_get_1(gf);
  header.reserved = gf_get_1(gf);
  return header;
}

/* The silent refusals, in the order they are tested. */
bool HeaderIsAcceptable(GFile *gf, const HeaderFields &header) {
  if (ferror(gf->fp)) return false;
  if (memcmp(header.magic, kMagic, sizeof kMagic) != 0) return false;
  if (header.version > GF_FORMAT_VERSION) return false;
  if (header.reserved != 0) return false;
  return true;
}

/* What every successful open stores; fp, owns_fp and base are set already. */
void StoreOpenRecord(GFile *gf, const char *name, bool for_write, int32_t version,
                     uint32_t file_type, uint32_t packed, int32_t adr_mode, uint8_t hd_storage,
                     bool owns_record) {
  gf->version = version;
  gf->file_type = file_type;
  gf->packed = packed;
  gf->adr_mode = adr_mode;
  gf->descriptors = 0;
  gf->swapped = 0;
  gf->name = gen_copy(name);
  gf->writing = for_write ? 1 : 0;
  gf->owns_record = owns_record ? 1 : 0;
  gf->hd_storage = hd_storage;
  gf->map_addr = gf_get_nil_file_memory_mapping_handle();
  gf->map_len = UINT32_MAX;
}

/* Whether the raw words of hd storage byte `stored` are in the other order
 * than this host's: byte 2 says so on every host; byte 1 (and any other
 * nonzero byte, taken as 1) means big-endian words.  See indgfile.h. */
bool HdWordsNeedSwapping(uint32_t stored) {
  if (stored == GF_HD_STORAGE_NONE) return false;
  if (stored == GF_HD_STORAGE_SWAPPED) return true;
  return std::endian::native != std::endian::big;
}

/* Undoes an open: closes a stream opened here and frees an allocated
 * record.  A caller's record stays as the open left it. */
GFile *FailOpen(GFile *gf, bool owns_record) {
  if (gf->owns_fp && gf->fp != nullptr) {
    fclose(gf->fp);
    gf->fp = nullptr;
  }
  if (owns_record) gen_free(gf);
  return nullptr;
}

/* The stream's position as the header's base; a stream that can't tell
 * its position counts from where it stands, 0. */
int32_t StartOfHeader(FILE *stream) {
  const long here = ftell(stream);
  return here < 0 ? 0 : static_cast<int32_t>(here);
}

}  // namespace

extern "C" GFile *gf_init_and_open(GFile *gf, FILE *stream, const char *name, int for_write,
                                   uint32_t file_type, uint32_t packed, int32_t adr_mode,
                                   uint8_t descriptors, uint8_t hd_storage) {
  const bool owns_record = gf == nullptr;
  if (owns_record) {
    gf = static_cast<GFile *>(gen_alloc(1, sizeof(GFile)));
    if (gf == nullptr) return nullptr;
  } else {
    memset(gf, 0, sizeof *gf);
  }

  if (stream != nullptr) {
    gf->fp = stream;
    gf->owns_fp = 0;
    gf->base = StartOfHeader(stream);
  } else {
    gf->fp = gen_fopen(name, for_write ? "w" : "r");
    gf->owns_fp = 1;
    gf->base = 0;
  }
  if (gf->fp == nullptr) return FailOpen(gf, owns_record);

  if (for_write) {
    if (descriptors != 0) gen_warning("%s", kDescriptorsNotSupported);
    WriteHeader(gf, file_type, packed, adr_mode, hd_storage);
    if (ferror(gf->fp)) return FailOpen(gf, owns_record);
    StoreOpenRecord(gf, name, true, GF_FORMAT_VERSION, file_type, packed, adr_mode, hd_storage,
                    owns_record);
    return gf;
  }

  const HeaderFields header = ReadHeader(gf);
  if (!HeaderIsAcceptable(gf, header)) return FailOpen(gf, owns_record);
  if (header.descriptors != 0) {
    gen_error("%s", kDescriptorsNotSupported);
    return FailOpen(gf, owns_record);
  }
  StoreOpenRecord(gf, name, false, header.version, header.file_type, header.packed, header.adr_mode,
                  static_cast<uint8_t>(header.hd_storage), owns_record);
  gf->swapped = HdWordsNeedSwapping(header.hd_storage) ? 1 : 0;
  return gf;
}

extern "C" GFile *gf_open_for_read(GFile *gf, FILE *stream, const char *name) {
  return gf_init_and_open(gf, stream, name, 0, 0, 0, kReadPlaceholderMode, 0, 0);
}

extern "C" GFile *gf_open_for_write(GFile *gf, FILE *stream, const char *name, uint32_t file_type,
                                    uint32_t packed, int32_t adr_mode, uint8_t descriptors,
                                    uint8_t hd_storage) {
  return gf_init_and_open(gf, stream, name, 1, file_type, packed, adr_mode, descriptors,
                          hd_storage);
}

/* ---- Closing ----------------------------------------------------------------- */

extern "C" int gf_close(GFile *gf) {
  errno = 0;
  if (gf == nullptr) return 1;
  /* A mapped file is cut to its length before its stream closes. */
  if (!gfile_stream::EndMapping(gf)) gf_set_got_error(gf, 1);
  if (gf->owns_fp) {
    if (gf->fp != nullptr && fclose(gf->fp) != 0) gf_set_got_error(gf, 1);
    gf->owns_fp = 0;
  }
  gf->fp = nullptr;
  gen_free(gf->name);
  gf->name = nullptr;
  if (gf->owns_mapping) {
    gf_close_memory_mapping(gf, gf_get_nil_file_memory_mapping_handle(), UINT32_MAX);
  }
  if (gf->owns_record) gen_free(gf);
  return 1;
}

/* ---- Positions ---------------------------------------------------------------- */

extern "C" int32_t gf_tell(GFile *gf, int32_t *pos) {
  long here = -1;
  if (gf != nullptr && gfile_stream::IsMapped(gf)) {
    here = static_cast<long>(gfile_stream::TellMapped(gf));
  } else if (gf != nullptr && gf->fp != nullptr) {
    here = ftell(gf->fp);
  } else {
    errno = EBADF;
  }
  int32_t result = -1;
  if (here == -1) {
    gf_set_got_error(gf, 1);
  } else {
    /* Positions are 32-bit: the difference wraps like one. */
    result = static_cast<int32_t>(static_cast<uint32_t>(here) - static_cast<uint32_t>(gf->base));
  }
  if (pos != nullptr) *pos = result;
  return result;
}

extern "C" int gf_seek(GFile *gf, int32_t pos) {
  int result = -1;
  if (gf != nullptr && gf->fp != nullptr) {
    const int32_t offset =
        static_cast<int32_t>(static_cast<uint32_t>(pos) + static_cast<uint32_t>(gf->base));
    if (gfile_stream::IsMapped(gf)) {
      result = gfile_stream::SeekMapped(gf, offset);
    } else {
      result = fseek(gf->fp, offset, SEEK_SET);
      /* All written bytes are in the file now: a large one may move to a
       * mapping here (indgfile.h, "Writing through a mapping"). */
      if (result == 0) gfile_stream::MaybeEnterMapping(gf, offset);
    }
  } else {
    errno = EBADF;
  }
  if (result == -1) gf_set_got_error(gf, 1);
  return result;
}

/* ---- Following a file that another process writes ---------------------------------- */

extern "C" int gf_is_open(const GFile *gf) { return gf != nullptr && gf->fp != nullptr ? 1 : 0; }

extern "C" void gf_flush(GFile *gf) {
  if (gf_is_open(gf)) fflush(gf->fp);
}

extern "C" void gf_seek_to_end(GFile *gf) {
  if (gf_is_open(gf)) fseek(gf->fp, 0, SEEK_END);
}

extern "C" int64_t gf_stream_offset(const GFile *gf) {
  return gf_is_open(gf) ? static_cast<int64_t>(ftell(gf->fp)) : -1;
}

extern "C" int64_t gf_stream_length(const GFile *gf) {
  struct stat st;
  if (!gf_is_open(gf) || fstat(fileno(gf->fp), &st) != 0) return -1;
  return static_cast<int64_t>(st.st_size);
}

extern "C" int gf_hit_end(const GFile *gf) { return gf_is_open(gf) && feof(gf->fp) ? 1 : 0; }

/* ---- The error state ---------------------------------------------------------- */

extern "C" int gf_got_error(const GFile *gf) {
  if (gf == nullptr) return 0;
  if (gf->descriptor_error || gf->constval_error || gf->alignpad_error ||
      gf->file_memory_mapping_error) {
    return 1;
  }
  return gf->fp != nullptr && ferror(gf->fp) ? 1 : 0;
}

extern "C" int gf_is_eof(const GFile *gf) {
  if (gf == nullptr || gf->fp == nullptr) {
    gen_warning("[gf_check_eof]: fp==NULL");
    return 0;
  }
  if (!gf->owns_fp) {
    gen_warning("[gf_check_eof]: fp==unowned");
    return 0;
  }
  return feof(gf->fp) ? 1 : 0;
}

extern "C" void gf_set_got_error(GFile *gf, int with_errno) {
  if (gf == nullptr || gf->got_error) return;
  gf->got_error = 1;
  const char *name = gf->name != nullptr ? gf->name : "UNKNOWN";
  if (with_errno) {
    gen_perror("Error while processing \"%s\"", name);
  } else {
    gen_error("Error while processing \"%s\"", name);
  }
}

extern "C" void gf_set_descriptor_error(GFile *gf) {
  if (gf == nullptr) return;
  gf->descriptor_error = 1;
  gf_set_got_error(gf, 0);
}

extern "C" void gf_set_constval_error(GFile *gf) {
  if (gf == nullptr) return;
  gf->constval_error = 1;
  gf_set_got_error(gf, 0);
}

extern "C" void gf_set_alignpad_error(GFile *gf) {
  if (gf == nullptr) return;
  gf->alignpad_error = 1;
  gf_set_got_error(gf, 0);
}

extern "C" void gf_set_file_memory_mapping_error(GFile *gf) {
  if (gf == nullptr) return;
  gf->file_memory_mapping_error = 1;
  gf_set_got_error(gf, 0);
}
