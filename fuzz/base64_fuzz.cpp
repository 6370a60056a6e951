// Fuzz target: CZUBase64. Decodes the input as arbitrary text (unpadded, cut short, bytes
// outside the alphabet) into a buffer of exactly the documented size, then checks that an
// encode/decode round trip of the input bytes returns them unchanged with the right count.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "zu_std.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CZUBase64 codec;

  // Arbitrary text: the output buffer is exactly 3 bytes per 4 characters, rounded up, so
  // AddressSanitizer sees any write past what the text can produce.
  std::string text(reinterpret_cast<const char*>(data), size);
  text = text.substr(0, text.find('\0'));
  std::vector<unsigned char> out((text.size() + 3) / 4 * 3 + 1);
  int n = codec.base64_decode(text.c_str(), out.data() + 1);
  FUZZ_CHECK(n >= 0 && static_cast<size_t>(n) <= out.size() - 1);

  // Round trip of the raw bytes (NULs included).
  const int len = static_cast<int>(size);
  std::vector<char> encoded(4 * ((size + 2) / 3) + 1, 'x');
  FUZZ_CHECK(codec.base64_encode(data, encoded.data(), len) == encoded.data());
  FUZZ_CHECK(std::strlen(encoded.data()) == encoded.size() - 1);
  for (size_t i = 0; i + 1 < encoded.size(); ++i) {
    char c = encoded[i];
    FUZZ_CHECK(std::strchr(CZUBase64::base64char, c) != nullptr ||
               (c == '=' && i + 3 >= encoded.size() - 1));
  }
  std::vector<unsigned char> decoded(size + 1);
  int m = codec.base64_decode(encoded.data(), decoded.data());
  FUZZ_CHECK(m == len);
  FUZZ_CHECK(size == 0 || std::memcmp(decoded.data(), data, size) == 0);
  return 0;
}
