// zustd tool: messages, number formatting and parsing, whole-file input and output.
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "cli.h"

namespace zustd_cli {

int Fail(int status, const std::string& message) {
  std::fprintf(stderr, "zustd: %s\n", message.c_str());
  return status;
}

std::string FormatNumber(double value, const std::optional<int>& precision) {
  char text[512];
  if (precision && std::isfinite(value)) {
    std::snprintf(text, sizeof text, "%.*f", *precision, value);
    return text;
  }
  if (std::isnan(value)) return std::signbit(value) ? "-nan" : "nan";
  const std::to_chars_result r = std::to_chars(text, text + sizeof text, value);
  return std::string(text, r.ptr);
}

namespace {

bool OnlyBlanksFrom(const char* p) {
  while (*p == ' ' || *p == '\t') ++p;
  return *p == '\0';
}

}  // namespace

bool ParseDouble(const std::string& text, double* value) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  const double v = std::strtod(begin, &end);
  if (end == begin || !OnlyBlanksFrom(end) || text.find('\0') != std::string::npos) return false;
  if (errno == ERANGE && std::isinf(v)) return false;  // overflow: not the number written
  *value = v;
  return true;
}

bool ParseInt(const std::string& text, int* value) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  const long v = std::strtol(begin, &end, 10);
  if (end == begin || !OnlyBlanksFrom(end) || text.find('\0') != std::string::npos) return false;
  if (errno == ERANGE || v < INT_MIN || v > INT_MAX) return false;
  *value = static_cast<int>(v);
  return true;
}

bool ReadAll(const std::string& path, std::string* bytes) {
  std::FILE* in = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
  if (in == nullptr) return false;
  bytes->clear();
  char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, in)) > 0) bytes->append(buf, n);
  const bool ok = !std::ferror(in);
  const int saved = errno;
  if (in != stdin) std::fclose(in);
  errno = ok ? 0 : (saved != 0 ? saved : EIO);
  return ok;
}

bool WriteOut(const std::string& bytes) {
  return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size();
}

void AddPrecisionOption(CLI::App* command, std::optional<int>* precision) {
  command
      ->add_option_function<int>(
          "--precision", [precision](const int& n) { *precision = n; },
          "Print numbers in fixed point with N decimals (default: the shortest form that reads "
          "back to the same value)")
      ->check(CLI::Range(0, 100))
      ->type_name("N");
}

}  // namespace zustd_cli
