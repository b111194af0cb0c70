/*
 * gfile_fuzz.cpp - drives GFile's reading side: the header reader
 * (gf_open_for_read on a stream handed in) and every value reader, in an
 * order the input chooses.  Input: a flags byte (bit 7: the file stands 5
 * bytes into the stream, so its base is not 0; bit 6: the file is mapped
 * first, for the mapped array readers), a count N, N operation bytes (some
 * take the bytes behind them as arguments), then the file itself, header
 * first, which the stream holds in a memory file (memfd) so that it can be
 * mapped.  Each operation byte picks one reader: the fixed-width numbers,
 * the integer families un, sn, iss, ind and their _2 and _3 forms, strings,
 * addresses and address pairs in the file's mode and in each width,
 * alignment pads, four-byte arrays read, mapped and passed over, byte
 * arrays, positions.  It checks that a string ends within what came back
 * and that a mapped array lies inside the mapping.
 */
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "fuzz_support.h"
#include "indgeninit.h"
#include "indgfile.h"

namespace {

unsigned sum = 0; /* of every byte handed out, so that each is read */

void CheckMapped(const GFile *gf, const uint8_t *ptr, uint64_t bytes) {
  if (ptr == nullptr) return;
  FUZZ_CHECK(gf->map_addr != gf_get_nil_file_memory_mapping_handle(), "an array without a mapping");
  const auto *start = static_cast<const uint8_t *>(gf->map_addr);
  FUZZ_CHECK(ptr >= start && ptr - start + bytes <= gf->map_len, "a mapped array outside the mapping");
  for (uint64_t i = 0; i < bytes; i++) sum += ptr[i];
}

void RunOperation(GFile *gf, uint8_t op, fuzzsupport::Input &ops) {
  int32_t a = 0, b = 0, c = 0;
  gadr x{0, 0}, y{0, 0};
  switch (op % 32) {
    case 0: sum += gf_get_1(gf); break;
    case 1: sum += gf_get_2(gf); break;
    case 2: sum += gf_get_4(gf); break;
    case 3: sum += static_cast<unsigned>(gf_get_8(gf)); break;
    case 4: sum += gf_get_un(gf); break;
    case 5: sum += static_cast<unsigned>(gf_get_sn(gf)); break;
    case 6: sum += static_cast<unsigned>(gf_get_iss(gf)); break;
    case 7: sum += static_cast<unsigned>(gf_get_ind(gf)); break;
    case 8: gf_get_iss_2(gf, &a, &b); break;
    case 9: gf_get_iss_3(gf, &a, &b, &c); break;
    case 10: gf_get_ind_2(gf, &a, &b); break;
    case 11: gf_get_ind_3(gf, &a, &b, &c); break;
    case 12: {
      char *text = gf_get_str(gf);
      if (text != nullptr) sum += strlen(text);
      gen_free(text);
      break;
    }
    case 13: sum += gf_get_adr16(gf); break;
    case 14: sum += gf_get_adr32(gf); break;
    case 15: gf_get_adr64(gf, &x); break;
    case 16: gf_get_adr(gf, &x); break;
    case 17: gf_get_adr_2(gf, &x, &y); break;
    case 18: {
      uint16_t first = 0, second = 0;
      gf_get_adr16_2(gf, &first, &second);
      break;
    }
    case 19: gf_get_adr32_2(gf, &x, &y); break;
    case 20: gf_get_adr64_2(gf, &x, &y); break;
    case 21: gf_get_alignpad(gf, ops.U1()); break;
    case 22: {
      uint32_t words[64];
      gf_get_array_4(gf, words, ops.U1() % 65);
      break;
    }
    case 23: gf_skip_array_4(gf, ops.U4()); break;
    case 24: {
      uint8_t bytes[256];
      gf_get_array_1(gf, bytes, ops.U1());
      break;
    }
    case 25: gf_skip_array_1(gf, ops.U4()); break;
    case 26: {
      const uint8_t *ptr = nullptr;
      const uint32_t n = ops.U4();
      gf_get_mapped_array_1(gf, &ptr, n);
      CheckMapped(gf, ptr, n);
      break;
    }
    case 27: {
      const uint32_t *ptr = nullptr;
      const uint32_t n = ops.U4();
      gf_get_mapped_array_4(gf, &ptr, n);
      CheckMapped(gf, reinterpret_cast<const uint8_t *>(ptr), uint64_t{n} * 4);
      break;
    }
    case 28: gf_seek(gf, static_cast<int32_t>(ops.U4())); break;
    case 29: {
      int32_t position = 0;
      sum += static_cast<unsigned>(gf_tell(gf, &position));
      break;
    }
    case 30:
      sum += static_cast<unsigned>(gf_can_memory_map_array(gf, 1) + gf_can_memory_map_array(gf, 4));
      break;
    default:
      sum += static_cast<unsigned>(gf_got_error(gf) + gf_hit_end(gf));
      break;
  }
  sum += static_cast<unsigned>(a) + static_cast<unsigned>(b) + static_cast<unsigned>(c) + x.lo + x.hi +
         y.lo + y.hi;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static bool started = false;
  if (!started) {
    fuzzsupport::QuietProgram();
    started = true;
  }
  fuzzsupport::Input input(data, size);
  const uint8_t flags = input.U1();
  size_t opCount = 0;
  const uint8_t *opBytes = input.Take(input.U1(), &opCount);
  size_t fileSize = 0;
  const uint8_t *file = input.Take(input.Left(), &fileSize);
  const long lead = (flags & 0x80) != 0 ? 5 : 0;

  const int fd = memfd_create("gfile-fuzz", MFD_CLOEXEC);
  FUZZ_CHECK(fd >= 0, "memfd_create failed");
  const uint8_t filler[5] = {0, 0, 0, 0, 0};
  FUZZ_CHECK(write(fd, filler, static_cast<size_t>(lead)) == lead &&
                 (fileSize == 0 || write(fd, file, fileSize) == static_cast<ssize_t>(fileSize)),
             "can't write the memory file");
  FILE *stream = fdopen(fd, "rb");
  FUZZ_CHECK(stream != nullptr && fseek(stream, lead, SEEK_SET) == 0, "can't open the memory file");

  GFile *gf = gf_open_for_read(nullptr, stream, "fuzz.gf");
  if (gf != nullptr) {
    if ((flags & 0x40) != 0) gf_open_memory_mapping(gf, 1, nullptr, nullptr);
    fuzzsupport::Input ops(opBytes, opCount);
    while (ops.Left() > 0) RunOperation(gf, ops.U1(), ops);
    sum += static_cast<unsigned>(gf_got_error(gf) + gf_is_eof(gf));
    gf_close(gf);
  }
  fclose(stream);
  return 0;
}
