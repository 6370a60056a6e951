// zustd para: get, set and delete values, list sections and keys of a parameter file, all
// through CKAPara so that files are read and written the way applications do it.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "cli.h"
#include "zu_file.h"
#include "zu_para.h"
#include "zu_string.h"

namespace zustd_cli {
namespace {

enum class Type { kString, kInt, kReal, kBool };

// A key no line can have: a line's key is the text before its first "=".
constexpr const char* kNoKey = "=";

struct ParaArgs {
  std::string file, section, key, value;
  Type type = Type::kString;
  std::optional<std::string> fallback;
  std::optional<int> precision;
};

void AddTypeOption(CLI::App* command, ParaArgs* args) {
  command
      ->add_option_function<std::string>(
          "--type",
          [args](const std::string& name) {
            args->type = name == "int"    ? Type::kInt
                         : name == "real" ? Type::kReal
                         : name == "bool" ? Type::kBool
                                          : Type::kString;
          },
          "Value type: string (default), int, real or bool")
      ->check(CLI::IsMember({"string", "int", "real", "bool"}))
      ->type_name("TYPE");
}

// Loads file into para. A missing file is an empty one when mayBeMissing; an unreadable file,
// a directory or a missing one otherwise is bad input (the message is already printed).
bool Load(CKAPara& para, const std::string& file, bool mayBeMissing, int* status) {
  struct stat st;
  if (stat(file.c_str(), &st) != 0) {
    if (errno == ENOENT && mayBeMissing) {
      para.SetFileName(file.c_str());  // names the file; there is nothing to load
      return true;
    }
    *status = Fail(kBadInput, file + ": " + std::strerror(errno));
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    *status = Fail(kBadInput, file + ": " + std::strerror(EISDIR));
    return false;
  }
  std::FILE* probe = std::fopen(file.c_str(), "r");
  if (probe == nullptr) {
    *status = Fail(kBadInput, file + ": " + std::strerror(errno));
    return false;
  }
  std::fclose(probe);
  para.SetFileName(file.c_str());  // false for an empty file: an empty model, as intended
  return true;
}

// "true"/"false" and the spellings people use for them; false when text is none of them.
bool ParseBool(const std::string& text, bool* value) {
  std::string t = text;
  std::transform(t.begin(), t.end(), t.begin(), [](unsigned char c) { return std::tolower(c); });
  static const char* const kTrue[] = {"true", "yes", "on", "1", "y"};
  static const char* const kFalse[] = {"false", "no", "off", "0", "n"};
  for (int i = 0; i < 5; ++i) {
    if (t == kTrue[i] || t == kFalse[i]) {
      *value = t == kTrue[i];
      return true;
    }
  }
  return false;
}

// The value text to print for key, or nullopt when it is not found (or not of the type).
std::optional<std::string> GetTyped(CKAPara& para, const ParaArgs& a) {
  bool found = false;
  const char* s = a.section.c_str();
  const char* k = a.key.c_str();
  std::string text;
  switch (a.type) {
    case Type::kString:
      text = para.GetString(s, k, "", &found);
      break;
    case Type::kInt:
      text = std::to_string(para.GetInt(s, k, 0, &found));
      break;
    case Type::kReal:
      text = FormatNumber(para.GetReal(s, k, 0.0, &found), a.precision);
      break;
    case Type::kBool:
      text = para.GetBool(s, k, false, &found) ? "true" : "false";
      break;
  }
  if (!found) return std::nullopt;
  return text;
}

// The default as it is printed for the type; false when it is not a value of the type.
bool FormatDefault(const ParaArgs& a, std::string* text) {
  int i;
  double d;
  bool b;
  switch (a.type) {
    case Type::kString:
      *text = *a.fallback;
      return true;
    case Type::kInt:
      if (!ParseInt(*a.fallback, &i)) return false;
      *text = std::to_string(i);
      return true;
    case Type::kReal:
      if (!ParseDouble(*a.fallback, &d)) return false;
      *text = FormatNumber(d, a.precision);
      return true;
    case Type::kBool:
      if (!ParseBool(*a.fallback, &b)) return false;
      *text = b ? "true" : "false";
      return true;
  }
  return false;
}

int RunGet(const ParaArgs& a) {
  std::string fallback;
  if (a.fallback && !FormatDefault(a, &fallback)) {
    return Fail(kBadInput, "--default: not a value of the type: " + *a.fallback);
  }
  CKAPara para;
  int status = kOk;
  if (!Load(para, a.file, false, &status)) return status;
  const std::optional<std::string> value = GetTyped(para, a);
  if (value) return WriteOut(*value + "\n") ? kOk : kBadInput;
  if (a.fallback) WriteOut(fallback + "\n");
  return kNotFound;
}

bool SetTyped(CKAPara& para, const ParaArgs& a, int* status) {
  const char* s = a.section.c_str();
  const char* k = a.key.c_str();
  int i;
  double d;
  bool b;
  switch (a.type) {
    case Type::kString:
      return para.SetString(s, k, a.value.c_str());
    case Type::kInt:
      if (ParseInt(a.value, &i)) return para.SetInt(s, k, i);
      break;
    case Type::kReal:
      if (ParseDouble(a.value, &d)) return para.SetReal(s, k, d);
      break;
    case Type::kBool:
      if (ParseBool(a.value, &b)) return para.SetBool(s, k, b);
      break;
  }
  *status = Fail(kBadInput, "VALUE: not a value of the type: " + a.value);
  return false;
}

// What set must refuse because the file could not hold it: a line break would start a new
// line (another entry or a header), and a key with "=" would never be found again.
std::string Unstorable(const ParaArgs& a) {
  const char* kBreaks = "\n\r";
  if (a.section.find_first_of(kBreaks) != std::string::npos) return "SECTION holds a line break";
  if (a.key.find_first_of(kBreaks) != std::string::npos) return "KEY holds a line break";
  if (a.key.find('=') != std::string::npos) return "KEY holds \"=\"";
  if (a.value.find_first_of(kBreaks) != std::string::npos) return "VALUE holds a line break";
  return "";
}

int RunSet(const ParaArgs& a) {
  const std::string refused = Unstorable(a);
  if (!refused.empty()) return Fail(kBadInput, refused + ": nothing written");
  CKAPara para;
  int status = kOk;
  if (!Load(para, a.file, true, &status)) return status;
  if (SetTyped(para, a, &status)) return kOk;
  if (status != kOk) return status;
  return Fail(kBadInput, a.file + ": cannot write: " + std::strerror(errno));
}

// The number of lines in the model: a section name holding a line feed matches no line.
int LineCount(CKAPara& para) {
  return ~para.SearchLine("\n", kNoKey);
}

bool HasSection(CKAPara& para, const std::string& section) {
  return para.SearchLine(section.c_str(), kNoKey) != ~LineCount(para);
}

int RunDelete(const ParaArgs& a) {
  CKAPara para;
  int status = kOk;
  if (!Load(para, a.file, false, &status)) return status;
  if (!HasSection(para, a.section)) return kNotFound;
  bool written;
  if (a.key.empty()) {
    written = para.DeleteKey(a.section.c_str());
  } else {
    if (para.SearchLine(a.section.c_str(), a.key.c_str()) < 1) return kNotFound;
    written = para.DeleteSubKey(a.section.c_str(), a.key.c_str());
  }
  if (written) return kOk;
  return Fail(kBadInput, a.file + ": cannot write: " + std::strerror(errno));
}

// The file's lines as CKAPara loads them: pieces of at most 1023 bytes, trimmed.
std::vector<std::string> ReadLines(const std::string& file) {
  std::vector<std::string> lines;
  CKAFile in(file.c_str());
  if (!in.Open("r")) return lines;
  char buf[1024];
  while (in.ReadLine(buf, sizeof buf)) {
    CKAString line(buf);
    line.TrimAll();
    lines.emplace_back(line.GetBuf(), static_cast<size_t>(line.GetLength()));
  }
  in.Close();
  return lines;
}

// Each section in file order, named as in its first header: a header line counts when the
// library finds the section at exactly that line.
int RunSections(const ParaArgs& a) {
  CKAPara para;
  int status = kOk;
  if (!Load(para, a.file, false, &status)) return status;
  const std::vector<std::string> lines = ReadLines(a.file);
  std::string out;
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    const size_t close = line.find(']');
    if (line.empty() || line[0] != '[' || close == std::string::npos) continue;
    const std::string name = line.substr(1, close - 1);
    if (para.SearchLine(name.c_str(), kNoKey) == ~static_cast<int>(i)) out += name + "\n";
  }
  return WriteOut(out) ? kOk : kBadInput;
}

int RunKeys(const ParaArgs& a) {
  CKAPara para;
  int status = kOk;
  if (!Load(para, a.file, false, &status)) return status;
  if (!HasSection(para, a.section)) return kNotFound;
  const std::string list = para.GetKeyList(a.section.c_str());
  return WriteOut(list.empty() ? list : list + "\n") ? kOk : kBadInput;
}

CLI::App* AddCommand(CLI::App* para, const char* name, const char* help, ParaArgs* args) {
  CLI::App* command = para->add_subcommand(name, help);
  command->add_option("FILE", args->file, "Parameter file")->required();
  return command;
}

}  // namespace

void AddParaCommands(CLI::App& app, Tool& tool) {
  CLI::App* para = app.add_subcommand("para", "Read and change parameter files (INI style)");
  para->require_subcommand(1);
  auto args = std::make_shared<ParaArgs>();
  ParaArgs* a = args.get();

  CLI::App* get = AddCommand(para, "get", "Print a value; exit 1 when it is not found", a);
  get->add_option("SECTION", a->section, "Section name (any letter case)")->required();
  get->add_option("KEY", a->key, "Key (exact)")->required();
  AddTypeOption(get, a);
  get->add_option("--default", a->fallback,
                  "Printed when the key is not found (exit 1 all the same)")
      ->type_name("VALUE");
  AddPrecisionOption(get, &a->precision);
  get->callback([&tool, args] { tool.status = RunGet(*args); });

  CLI::App* set = AddCommand(para, "set", "Set a value (adds the key and section when missing)", a);
  set->add_option("SECTION", a->section, "Section name")->required();
  set->add_option("KEY", a->key, "Key")->required();
  set->add_option("VALUE", a->value, "Value; with --type real it is stored as %.3f")->required();
  AddTypeOption(set, a);
  set->callback([&tool, args] { tool.status = RunSet(*args); });

  CLI::App* del =
      AddCommand(para, "del", "Delete a key, or a whole section; exit 1 when missing", a);
  del->add_option("SECTION", a->section, "Section name")->required();
  del->add_option("KEY", a->key, "Key (without it the whole section is deleted)");
  del->callback([&tool, args] { tool.status = RunDelete(*args); });

  CLI::App* sections = AddCommand(para, "sections", "List the section names, in file order", a);
  sections->callback([&tool, args] { tool.status = RunSections(*args); });

  CLI::App* keys =
      AddCommand(para, "keys", "Print a section's entry lines; exit 1 when it is missing", a);
  keys->add_option("SECTION", a->section, "Section name")->required();
  keys->callback([&tool, args] { tool.status = RunKeys(*args); });
}

}  // namespace zustd_cli
