// zustd log: show the entries of a log written by CKALog (backup generation, then the current
// file), optionally following it across rotations, and add entries through CKALog.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

#include "cli.h"
#include "zu_global_unix.h"
#include "zu_log.h"
#include "zu_std.h"

namespace zustd_cli {
namespace {

constexpr const char* kLogDir = "$SYSTEMHOME/inf";
constexpr off_t kHeaderSize = 6;  // the entry counter, "%04d\n" and a NUL or "%05d\n"
constexpr int kFollowPollMs = 200;
constexpr size_t kStampSize = 19;  // YYYY-MM-DD hh:mm:ss

struct LogArgs {
  std::string name, text, dir, grep, since;
  bool follow = false;
  bool json = false;
};

struct Entry {
  std::string file, number, time, text, lines;
};

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Whether text is a time stamp of the form YYYY-MM-DD hh:mm:ss.
bool IsStamp(const std::string& text) {
  static const char kForm[] = "dddd-dd-dd dd:dd:dd";
  if (text.size() != kStampSize) return false;
  for (size_t i = 0; i < kStampSize; ++i) {
    if (kForm[i] == 'd' ? !IsDigit(text[i]) : text[i] != kForm[i]) return false;
  }
  return true;
}

// Splits "NNN <YYYY-MM-DD hh:mm:ss> text" into e; false for a line that starts no entry.
bool ParseEntryLine(const std::string& line, Entry* e) {
  size_t digits = 0;
  while (digits < line.size() && IsDigit(line[digits])) ++digits;
  const size_t stamp = digits + 2;
  if (digits < 3 || line.size() < stamp + kStampSize + 2 || line.compare(digits, 2, " <") != 0 ||
      line.compare(stamp + kStampSize, 2, "> ") != 0 || !IsStamp(line.substr(stamp, kStampSize))) {
    return false;
  }
  e->number = line.substr(0, digits);
  e->time = line.substr(stamp, kStampSize);
  e->text = line.substr(stamp + kStampSize + 2);
  e->lines = line;
  return true;
}

bool IsUtf8(const std::string& s) {
  for (size_t i = 0; i < s.size();) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    const size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (n == 0 || i + n > s.size()) return false;
    for (size_t k = 1; k < n; ++k) {
      if ((static_cast<unsigned char>(s[i + k]) >> 6) != 2) return false;
    }
    i += n;
  }
  return true;
}

// A JSON string literal of s; bytes of a text that is not UTF-8 are taken as Latin-1.
std::string JsonString(const std::string& s) {
  const bool utf8 = IsUtf8(s);
  std::string out = "\"";
  for (char ch : s) {
    const unsigned char c = static_cast<unsigned char>(ch);
    char esc[8];
    if (c == '"' || c == '\\') {
      out += '\\';
      out += ch;
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || (c >= 0x80 && !utf8)) {
      std::snprintf(esc, sizeof esc, "\\u%04x", c);
      out += esc;
    } else {
      out += ch;
    }
  }
  return out + "\"";
}

// Gathers lines into entries (a line that starts no entry continues the one before: a text
// holding a line feed), filters them and prints them.
class EntryPrinter {
 public:
  explicit EntryPrinter(const LogArgs& args) : m_args(args) {}

  void SetFile(const std::string& file) {
    Flush();
    m_file = file;
  }
  void Line(const std::string& line) {
    Entry next;
    if (ParseEntryLine(line, &next)) {
      Flush();
      next.file = m_file;
      m_pending = next;
      m_hasPending = true;
    } else if (m_hasPending) {  // lines before the file's first entry are not shown
      m_pending.text += "\n" + line;
      m_pending.lines += "\n" + line;
    }
  }
  // Prints the entry gathered so far; false on a write error.
  bool Flush() {
    if (!m_hasPending) return m_writeOk;
    m_hasPending = false;
    const Entry& e = m_pending;
    if (!m_args.grep.empty() && e.text.find(m_args.grep) == std::string::npos) return m_writeOk;
    if (!m_args.since.empty() && e.time < m_args.since) return m_writeOk;
    if (!m_args.json) {
      m_writeOk = WriteOut(e.lines + "\n") && m_writeOk;
    } else {
      m_writeOk = WriteOut("{\"file\":" + JsonString(e.file) + ",\"number\":" +
                           std::to_string(std::stol(e.number)) + ",\"time\":" + JsonString(e.time) +
                           ",\"text\":" + JsonString(e.text) + "}\n") &&
                  m_writeOk;
    }
    return m_writeOk;
  }

 private:
  const LogArgs& m_args;
  std::string m_file;
  Entry m_pending;
  bool m_hasPending = false;
  bool m_writeOk = true;
};

// One log file read from byte 6 on; complete lines go to the printer, a line still being
// written waits for its line feed.
class LogReader {
 public:
  LogReader(std::string path, std::string label, EntryPrinter* printer)
      : m_path(std::move(path)), m_label(std::move(label)), m_printer(printer) {}
  ~LogReader() { Close(); }
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  // Opens the file (if not open yet); false when it does not exist or cannot be read.
  bool Open() {
    if (m_fd >= 0) return true;
    m_fd = open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) return false;
    struct stat st;
    if (fstat(m_fd, &st) != 0 || S_ISDIR(st.st_mode)) {
      Close();
      errno = EISDIR;
      return false;
    }
    m_id = st.st_ino;
    m_offset = kHeaderSize;
    m_printer->SetFile(m_label);
    return true;
  }
  // Reads what was appended since the last call.
  void ReadNew() {
    char buf[65536];
    ssize_t n;
    while (m_fd >= 0 && (n = pread(m_fd, buf, sizeof buf, m_offset)) > 0) {
      m_offset += n;
      m_partial.append(buf, static_cast<size_t>(n));
      size_t start = 0, end;
      while ((end = m_partial.find('\n', start)) != std::string::npos) {
        m_printer->Line(m_partial.substr(start, end - start));
        start = end + 1;
      }
      m_partial.erase(0, start);
    }
    if (m_partial.empty()) m_printer->Flush();  // the last entry is complete
  }
  // Reads the rest, including a last line without line feed, and closes the file.
  void Finish() {
    ReadNew();
    if (!m_partial.empty()) m_printer->Line(m_partial);
    m_partial.clear();
    m_printer->Flush();
    Close();
  }
  // Whether the path now names another file than the one open (moved away by a rotation).
  bool Replaced() const {
    struct stat st;
    return m_fd >= 0 && (stat(m_path.c_str(), &st) != 0 || st.st_ino != m_id);
  }
  bool IsOpen() const { return m_fd >= 0; }

 private:
  void Close() {
    if (m_fd >= 0) close(m_fd);
    m_fd = -1;
  }

  std::string m_path, m_label;
  EntryPrinter* m_printer;
  int m_fd = -1;
  ino_t m_id = 0;
  off_t m_offset = 0;
  std::string m_partial;
};

// Follows the current file forever: appended entries are printed every poll; when the file is
// moved to ".bak" its rest is read and the new current file is followed from its start.
[[noreturn]] void Follow(LogReader* current, EntryPrinter* printer) {
  for (;;) {
    current->ReadNew();
    std::fflush(stdout);
    if (!printer->Flush() || std::ferror(stdout)) std::exit(kBadInput);
    if (current->Replaced()) current->Finish();
    if (!current->IsOpen() && current->Open()) continue;
    ka_sleep(kFollowPollMs);
  }
}

bool ValidName(const std::string& name) {
  return !name.empty() && name.find('/') == std::string::npos && name != "." && name != "..";
}

int RunShow(const LogArgs& a) {
  if (!ValidName(a.name)) return Fail(kBadInput, "not a log name: \"" + a.name + "\"");
  if (!a.since.empty() && !IsStamp(a.since)) {
    return Fail(kBadInput, "--since: not of the form \"YYYY-MM-DD hh:mm:ss\": " + a.since);
  }
  const std::string dir = a.dir.empty() ? ka_get_path_name(kLogDir) : a.dir;
  if (dir.empty())
    return Fail(kBadInput, "SYSTEMHOME is not set: give the log directory with --dir");
  EntryPrinter printer(a);
  LogReader backup(dir + "/" + a.name + ".bak", a.name + ".bak", &printer);
  LogReader current(dir + "/" + a.name + ".inf", a.name + ".inf", &printer);
  const bool hasBackup = backup.Open();
  if (hasBackup) backup.Finish();
  const bool hasCurrent = current.Open();
  const int openError = errno;
  if (!hasBackup && !hasCurrent && !a.follow) {
    return Fail(kBadInput, dir + "/" + a.name + ".inf: " + std::strerror(openError));
  }
  if (a.follow) Follow(&current, &printer);
  current.Finish();
  return printer.Flush() ? kOk : kBadInput;
}

int RunAdd(const LogArgs& a) {
  if (!ValidName(a.name)) return Fail(kBadInput, "not a log name: \"" + a.name + "\"");
  CKALog log;
  if (!log.SetProcName(a.name.c_str())) {
    return Fail(kBadInput,
                "no log directory: SYSTEMHOME is not set or $SYSTEMHOME/inf cannot be created");
  }
  log.Add(a.text.c_str());
  return kOk;
}

}  // namespace

void AddLogCommands(CLI::App& app, Tool& tool) {
  CLI::App* log = app.add_subcommand("log", "Read and add entries of the library's log files");
  log->require_subcommand(1);
  auto args = std::make_shared<LogArgs>();
  LogArgs* a = args.get();

  CLI::App* show =
      log->add_subcommand("show", "Print the entries of NAME.bak, then of NAME.inf, oldest first");
  show->add_option("NAME", a->name, "Log name (the process name given to the library)")->required();
  show->add_option("--dir", a->dir, "Log directory (default: $SYSTEMHOME/inf)")->type_name("DIR");
  show->add_flag("-f,--follow", a->follow,
                 "Keep printing new entries as they are written, across rotations");
  show->add_option("--grep", a->grep, "Only entries whose text holds TEXT")->type_name("TEXT");
  show->add_option("--since", a->since, "Only entries stamped at or after this local time")
      ->type_name("\"YYYY-MM-DD hh:mm:ss\"");
  show->add_flag("--json", a->json, "One JSON object per entry: file, number, time, text");
  show->callback([&tool, args] { tool.status = RunShow(*args); });

  CLI::App* add = log->add_subcommand("add", "Add an entry to $SYSTEMHOME/inf/NAME.inf");
  add->add_option("NAME", a->name, "Log name")->required();
  add->add_option("TEXT", a->text, "The entry's text")->required();
  add->callback([&tool, args] { tool.status = RunAdd(*args); });
}

}  // namespace zustd_cli
