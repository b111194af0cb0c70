/*
 * kqv_text.cpp - how kqv writes what it shows: seconds from ticks, JSON
 * strings, payload words, and the names of events, tasks, statuses and
 * object types.
 */
#include <cinttypes>
#include <cstring>

#include "kq_byteorder.h"
#include "kq_names.h"
#include "kqv.h"

namespace kqv {

std::string Seconds(uint64_t ticks, uint64_t ticksPerSecond) {
  if (ticksPerSecond == 0) return "-";
  const uint64_t whole = ticks / ticksPerSecond;
  /* The remainder is below 2^32, so times 10^9 it stays below 2^62. */
  const uint64_t nanos = (ticks % ticksPerSecond) * 1000000000u / ticksPerSecond;
  char text[48];
  snprintf(text, sizeof text, "%" PRIu64 ".%09" PRIu64, whole, nanos);
  return text;
}

std::string JsonString(const std::string &text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (byte < 0x20 || byte >= 0x7F || c == '<') {  // '<': safe inside a page's script
      char escape[8];
      snprintf(escape, sizeof escape, "\\u%04x", byte);
      out += escape;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string Hex(const uint8_t *bytes, uint32_t length) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out(2 * static_cast<size_t>(length), '0');
  for (uint32_t i = 0; i < length; i++) {
    out[2 * i] = kDigits[bytes[i] >> 4];
    out[2 * i + 1] = kDigits[bytes[i] & 15];
  }
  return out;
}

std::string PayloadWords(const uint8_t *payload, uint32_t length, bool bigEndian) {
  static const char kDigits[] = "0123456789abcdef";
  std::string out;
  out.reserve(length / 4 * 9 + length % 4 * 3);
  uint32_t at = 0;
  for (; at + 4 <= length; at += 4) {
    if (!out.empty()) out += ' ';
    const uint32_t word = kq_ConvertToHostOrder4(bigEndian ? 1 : 0, payload + at);
    for (int shift = 28; shift >= 0; shift -= 4) out += kDigits[(word >> shift) & 15];
  }
  for (; at < length; at++) {
    if (!out.empty()) out += ' ';
    out += kDigits[payload[at] >> 4];
    out += kDigits[payload[at] & 15];
  }
  return out;
}

std::string EventName(kq_DB *db, uint16_t type, uint16_t subtype) {
  kq_Event event{};
  event.type = type;
  event.subtype = subtype;
  constexpr uint16_t kKernelCall = 3;
  if (type == kKernelCall) {
    const char *service = kq_GetServiceName(db, subtype);
    if (service != nullptr) return std::string("Kernel Call: ") + service;
  }
  return kq_GetNameOfEvent(db, &event);
}

std::string ObjectName(kq_DB *db, kq_State *state, uint16_t type, uint32_t id) {
  char name[2 * 31 + 2] = {};
  uint8_t known = 0;
  constexpr int32_t kNameField = 2;
  if (state == nullptr ||
      !kq_GetValueIfIsKnown(db, state, type, id, kNameField, &known, name, sizeof name, ':') ||
      !known) {
    return "";
  }
  return name;
}

std::string StatusName(kq_DB *db, uint16_t status) {
  const char *name = kq_GetStatusName(db, status);
  return name != nullptr ? name : "unknown (" + std::to_string(status) + ")";
}

std::string TypeName(kq_DB *db, uint16_t type) {
  const char *name = kq_GetObjectTypeName(db, type);
  return name != nullptr ? name : "type " + std::to_string(type);
}

}  // namespace kqv
