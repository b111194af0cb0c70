// Hexadecimal test literals; see hex_bytes.h.
#include "hex_bytes.h"

#include <cctype>
#include <stdexcept>

namespace testsupport {

namespace {

int Nibble(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string HexBytes(const std::string &text) {
  std::string bytes;
  int high = -1;
  for (size_t i = 0; i < text.size(); i++) {
    const char c = text[i];
    if (c == '"') {
      if (high >= 0) throw std::invalid_argument("odd number of hex digits before text");
      const size_t close = text.find('"', i + 1);
      if (close == std::string::npos) throw std::invalid_argument("unterminated text");
      bytes += text.substr(i + 1, close - i - 1);
      i = close;
      continue;
    }
    if (isspace(static_cast<unsigned char>(c)) || c == '|' || c == '_') continue;
    const int value = Nibble(c);
    if (value < 0) throw std::invalid_argument(std::string("bad hex digit '") + c + "'");
    if (high < 0) {
      high = value;
    } else {
      bytes += static_cast<char>(high * 16 + value);
      high = -1;
    }
  }
  if (high >= 0) throw std::invalid_argument("odd number of hex digits");
  return bytes;
}

std::string ToHex(const std::string &bytes) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (unsigned char byte : bytes) {
    if (!text.empty()) text += ' ';
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace testsupport
