// zustd time: an instant as seconds since the epoch and as local time, with its fields, as
// CKATime converts them.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "cli.h"
#include "zu_time.h"

namespace zustd_cli {
namespace {

// Sets t from the argument: digits are seconds since the epoch, anything else local time
// "YYYY-MM-DD hh:mm:ss" (fields out of range are carried over, as CKATime does).
bool SetFromText(CKATime* t, const std::string& text) {
  const char* s = text.c_str();
  if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
    errno = 0;
    const long long v = std::strtoll(s, nullptr, 10);
    const time_t instant = static_cast<time_t>(v);
    return errno == 0 && static_cast<long long>(instant) == v && t->SetTime(instant);
  }
  int f[6];
  char tail;
  if (std::sscanf(s, "%d-%d-%d %d:%d:%d%c", &f[0], &f[1], &f[2], &f[3], &f[4], &f[5], &tail) != 6) {
    return false;
  }
  return t->SetTime(s);
}

std::string Describe(const CKATime& t) {
  char text[512];
  std::snprintf(text, sizeof text,
                "instant %lld\nlocal %s\nyear %d\nmonth %d\nday %d\nhour %d\nminute %d\n"
                "second %d\nweekday %d\nyearday %d\n",
                static_cast<long long>(t.GetTime()), t.ToString(3).GetBuf(), t.GetYear(),
                t.GetMonth(), t.GetDay(), t.GetHour(), t.GetMinute(), t.GetSecond(), t.GetWeek(),
                t.GetDayOfYear());
  return text;
}

int Run(const std::string& when) {
  CKATime t;
  if (when.empty()) {
    t.SetCurrentTime();
  } else if (!SetFromText(&t, when)) {
    return Fail(kBadInput,
                "not a time (seconds since 1970, or \"YYYY-MM-DD hh:mm:ss\" from 1970 on, "
                "within this system's time range): " +
                    when);
  }
  return WriteOut(Describe(t)) ? kOk : kBadInput;
}

}  // namespace

void AddTimeCommand(CLI::App& app, Tool& tool) {
  auto when = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand(
      "time", "Print an instant (default: now) as seconds, as local time and by fields");
  command->add_option("WHEN", *when, "Seconds since 1970-01-01 UTC, or \"YYYY-MM-DD hh:mm:ss\"");
  command->callback([&tool, when] { tool.status = Run(*when); });
}

}  // namespace zustd_cli
