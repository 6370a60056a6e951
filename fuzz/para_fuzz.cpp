// Fuzz target: CKAPara. The input's first part is written as a parameter file in a private
// temporary directory and loaded; the rest decides a sequence of reads and edits (typed
// setters and getters, deletions, key lists, raw line access, reloads, unwritable names).
// A value set under a plain section and key must read back at once from the same object.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_input.h"
#include "zu_para.h"
#include "zu_string.h"

namespace {

std::string g_dir;

void RemoveDir() {
  if (g_dir.empty()) return;
  std::remove((g_dir + "/p.ini").c_str());
  std::remove((g_dir + "/q.ini").c_str());
  rmdir(g_dir.c_str());
}

const std::string& Dir() {
  if (g_dir.empty()) {
    // Every change syncs the file: memory-backed /dev/shm keeps that cheap where it exists.
    char shm[] = "/dev/shm/zustd-para-fuzz-XXXXXX";
    char tmp[] = "/tmp/zustd-para-fuzz-XXXXXX";
    const char* dir = mkdtemp(shm);
    if (dir == nullptr) dir = mkdtemp(tmp);
    if (dir == nullptr) std::abort();
    g_dir = dir;
    std::atexit(RemoveDir);
  }
  return g_dir;
}

void WriteFile(const std::string& path, const std::string& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) std::abort();
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

// A section or key name: mostly short names over a few letters (so that edits meet the
// loaded lines), sometimes arbitrary bytes ("]", "=", ";", blanks, line feeds) or null.
struct Name {
  std::string text;
  bool null = false;
  bool plain = true;  // letters and digits only: lookups must find what was set
  const char* get() const { return null ? nullptr : text.c_str(); }
};

Name ReadName(FuzzInput& in) {
  Name n;
  switch (in.Pick(8)) {
    case 0:
      n.null = true;
      n.plain = false;
      return n;
    case 1:
    case 2:
      n.text = in.Text(12);
      break;
    default: {
      static const char kLetters[] = "abAB01";
      size_t len = 1 + in.Pick(3);
      for (size_t i = 0; i < len; ++i) n.text += kLetters[in.Pick(sizeof kLetters - 1)];
      break;
    }
  }
  for (char c : n.text)
    n.plain =
        n.plain && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'));
  n.plain = n.plain && !n.text.empty();
  return n;
}

void Step(FuzzInput& in, CKAPara& para, const std::string& path) {
  Name sec = ReadName(in), key = ReadName(in);
  const bool plain = sec.plain && key.plain;
  bool found = false;
  bool* pf = in.Bool() ? &found : nullptr;
  switch (in.Pick(20)) {
    case 0:
      para.GetBool(sec.get(), key.get(), in.Bool(), pf);
      break;
    case 1:
      para.GetInt(sec.get(), key.get(), in.Int(), pf);
      break;
    case 2:
      para.GetReal(sec.get(), key.get(), in.Double(), pf);
      break;
    case 3: {
      std::string def = in.Text(8);
      para.GetString(sec.get(), key.get(), in.Bool() ? nullptr : def.c_str(), pf);
      break;
    }
    case 4: {
      bool v = in.Bool();
      if (para.SetBool(sec.get(), key.get(), v) && plain)
        FUZZ_CHECK(para.GetBool(sec.get(), key.get(), !v, nullptr) == v);
      break;
    }
    case 5: {
      int v = in.Int();
      if (para.SetInt(sec.get(), key.get(), v) && plain)
        FUZZ_CHECK(para.GetInt(sec.get(), key.get(), v ^ 1, nullptr) == v);
      break;
    }
    case 6:
      para.SetReal(sec.get(), key.get(), in.Double());
      break;
    case 7: {
      std::string v = in.Text(24);
      bool null_value = in.Pick(6) == 0;
      para.SetString(sec.get(), key.get(), null_value ? nullptr : v.c_str());
      break;
    }
    case 8: {
      std::string v = in.Text(16);
      int pos = in.Bool() ? 0 : in.Int() % 40;
      para.AddValueString(sec.get(), key.get(), in.Bool() ? nullptr : v.c_str(), pos);
      break;
    }
    case 9:
      para.DeleteSubKey(sec.get(), key.get());
      break;
    case 10:
      para.DeleteKey(sec.get());
      break;
    case 11: {
      std::string list = in.Text(64);
      para.SetKeyList(sec.get(), in.Pick(6) == 0 ? nullptr : list.c_str());
      break;
    }
    case 12: {
      std::string list = para.GetKeyList(sec.get());
      if (in.Bool()) para.SetKeyList(sec.get(), list.c_str());
      break;
    }
    case 13:
      para.SearchLine(sec.get(), key.get());
      break;
    case 14: {
      CKAString value("unchanged");
      para.GetValueString(in.Int() % 64, value);
      std::string v = in.Text(16);
      int index = in.Int() % 64;
      para.SetValueString(index, in.Pick(6) == 0 ? nullptr : v.c_str());
      break;
    }
    case 15:
      para.WriteToFile();
      break;
    case 16:
      para.DeleteAll();
      break;
    case 17: {
      // Another file, a directory, a missing directory or null, then back to the file.
      const std::string names[] = {Dir() + "/q.ini", Dir(), Dir() + "/missing/x.ini", path};
      unsigned which = in.Pick(5);
      para.SetFileName(which < 4 ? names[which].c_str() : nullptr);
      if (in.Bool()) para.SetKeyList(sec.get(), "k=v");
      para.SetFileName(path.c_str());
      break;
    }
    default: {
      // Reload the file as written into a second object and read the same key.
      CKAPara again;
      again.SetFileName(path.c_str());
      again.GetString(sec.get(), key.get(), "", nullptr);
      break;
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  const std::string path = Dir() + "/p.ini";
  // Two length bytes, then that many bytes of file text (NULs and long lines included).
  size_t len = in.Byte();
  len = (len << 8 | in.Byte()) % 4096;
  std::string file;
  for (size_t i = 0; i < len && !in.Empty(); ++i) file += static_cast<char>(in.Byte());
  WriteFile(path, file);
  std::remove((Dir() + "/q.ini").c_str());
  CKAPara para;
  para.SetFileName(path.c_str());
  for (int steps = 0; steps < 64 && !in.Empty(); ++steps) Step(in, para, path);
  return 0;
}
