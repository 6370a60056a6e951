// zustd base64: CZUBase64 over a file or stdin, byte for byte what coreutils `base64 -w0`
// writes and what `base64 -d` reads from valid input.
#include <cerrno>
#include <cstring>
#include <memory>

#include "cli.h"
#include "zu_std.h"

namespace zustd_cli {
namespace {

constexpr size_t kEncodeBlock = 3 * 16384;  // whole groups, so blocks join seamlessly

struct Base64Args {
  bool decode = false;
  std::string file = "-";
};

std::string Encode(const std::string& bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::string block(kEncodeBlock / 3 * 4 + 1, '\0');
  CZUBase64 codec;
  for (size_t at = 0; at < bytes.size(); at += kEncodeBlock) {
    const size_t n = std::min(kEncodeBlock, bytes.size() - at);
    codec.base64_encode(reinterpret_cast<const unsigned char*>(bytes.data() + at), &block[0],
                        static_cast<int>(n));
    out.append(block.c_str());
  }
  return out;
}

bool InAlphabet(char c) {
  return c != '\0' && std::strchr(CZUBase64::base64char, c) != nullptr;
}

// Whether the four characters at g form a valid group: four alphabet characters, or two or
// three of them padded with "=" to four.
bool ValidGroup(const char* g) {
  if (!InAlphabet(g[0]) || !InAlphabet(g[1])) return false;
  if (g[2] == '=') return g[3] == '=';
  return InAlphabet(g[2]) && (g[3] == '=' || InAlphabet(g[3]));
}

// Decodes text with its line feeds removed; false, with nothing decoded, for invalid input.
// Padded groups may also stand inside the text (concatenated encodings), as coreutils allows.
bool Decode(const std::string& input, std::string* out) {
  std::string text;
  for (char c : input) {
    if (c != '\n') text += c;
  }
  if (text.size() % 4 != 0) return false;
  for (size_t g = 0; g < text.size(); g += 4) {
    if (!ValidGroup(&text[g])) return false;
  }
  out->assign(text.size() / 4 * 3 + 3, '\0');
  CZUBase64 codec;
  size_t written = 0;
  for (size_t start = 0; start < text.size();) {
    // base64_decode stops after the first padded group: give it one run at a time.
    size_t end = start;
    while (end < text.size() && text[end + 3] != '=') end += 4;
    end = std::min(end + 4, text.size());
    const std::string run = text.substr(start, end - start);
    written += static_cast<size_t>(
        codec.base64_decode(run.c_str(), reinterpret_cast<unsigned char*>(&(*out)[written])));
    start = end;
  }
  out->resize(written);
  return true;
}

int Run(const Base64Args& a) {
  std::string input;
  if (!ReadAll(a.file, &input)) return Fail(kBadInput, a.file + ": " + std::strerror(errno));
  if (!a.decode) return WriteOut(Encode(input)) ? kOk : kBadInput;
  std::string bytes;
  if (!Decode(input, &bytes)) return Fail(kBadInput, "invalid base64 input");
  return WriteOut(bytes) ? kOk : kBadInput;
}

}  // namespace

void AddBase64Command(CLI::App& app, Tool& tool) {
  auto args = std::make_shared<Base64Args>();
  CLI::App* command = app.add_subcommand(
      "base64", "Encode FILE (or stdin) to base64 without line breaks, or decode it with -d");
  command->add_flag("-d,--decode", args->decode, "Decode (line feeds are ignored)");
  command->add_option("FILE", args->file, "Input file; - or none for stdin");
  command->callback([&tool, args] { tool.status = Run(*args); });
}

}  // namespace zustd_cli
