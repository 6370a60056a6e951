// fuzz_input: FuzzInput, a reader that turns a fuzzer's byte string into the decisions and
// arguments of one test run (small integers, choices, texts). Reading past the end yields
// zeros and empty texts, so every input is a complete run. Used by one thread at a time.
#ifndef ZUSTD_FUZZ_FUZZ_INPUT_H
#define ZUSTD_FUZZ_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

// Reads the input front to back. Not copyable by intent (it refers to the caller's bytes).
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  FuzzInput(const FuzzInput&) = delete;
  FuzzInput& operator=(const FuzzInput&) = delete;

  bool Empty() const { return pos_ >= size_; }
  size_t Remaining() const { return size_ - pos_; }

  uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  bool Bool() { return (Byte() & 1) != 0; }
  // A value in 0 .. n - 1 (n > 0).
  unsigned Pick(unsigned n) { return Byte() % n; }
  // A 32-bit value that favours the interesting ones: small, negative, near the limits.
  int Int() {
    switch (Pick(8)) {
      case 0:
        return static_cast<int>(Byte()) - 128;
      case 1:
        return static_cast<int>(Byte()) % 16;
      case 2:
        return -1 - static_cast<int>(Byte() % 4);
      case 3:
        return INT32_MAX - static_cast<int>(Byte() % 4);
      case 4:
        return INT32_MIN + static_cast<int>(Byte() % 4);
      default: {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = (v << 8) | Byte();
        int r;
        std::memcpy(&r, &v, sizeof r);
        return r;
      }
    }
  }
  // Raw 8 bytes as a double (NaN, infinities and denormals included).
  double Double() {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v = (v << 8) | Byte();
    double d;
    std::memcpy(&d, &v, sizeof d);
    return d;
  }
  // A text of up to max_len bytes: a length byte, then the bytes, cut at the first NUL.
  std::string Text(size_t max_len = 64) {
    size_t n = Byte() % (max_len + 1);
    if (n > Remaining()) n = Remaining();
    std::string s(reinterpret_cast<const char*>(data_ + pos_), n);
    pos_ += n;
    return s.substr(0, s.find('\0'));
  }
  // Everything that is left, cut at the first NUL.
  std::string Rest() {
    std::string s(reinterpret_cast<const char*>(data_ + pos_), size_ - pos_);
    pos_ = size_;
    return s.substr(0, s.find('\0'));
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

// Stops the run with a message; libFuzzer and the replay program both see an abort.
#define FUZZ_CHECK(cond)                                                            \
  do {                                                                              \
    if (!(cond)) {                                                                  \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                                 \
    }                                                                               \
  } while (0)

#endif  // ZUSTD_FUZZ_FUZZ_INPUT_H
