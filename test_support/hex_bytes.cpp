// Hexadecimal test literals; see hex_bytes.h.
#include "hex_bytes.h"

#include <cctype>
#include <stdexcept>

namespace testsupport {

std::string HexBytes(const std::string &text) {
  std::string bytes, digits;
  auto flush = [&] {
    if (digits.size() % 2 != 0) throw std::invalid_argument("odd number of hex digits in " + text);
    for (size_t k = 0; k < digits.size(); k += 2) bytes += static_cast<char>(std::stoi(digits.substr(k, 2), nullptr, 16));
    digits.clear();
  };
  for (size_t i = 0; i < text.size(); i++) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '"') {
      const size_t close = text.find('"', i + 1);
      if (close == std::string::npos) throw std::invalid_argument("unterminated text in " + text);
      flush();
      bytes += text.substr(i + 1, close - i - 1);
      i = close;
    } else if (isxdigit(c)) {
      digits += text[i];
    } else if (!isspace(c) && c != '|') {
      throw std::invalid_argument("bad hex digit in " + text);
    }
  }
  flush();
  return bytes;
}

std::string ToHex(const std::string &bytes) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (unsigned char byte : bytes) text += (text.empty() ? "" : " ") + std::string{kDigits[byte >> 4], kDigits[byte & 15]};
  return text;
}

}  // namespace testsupport
