// zu_time: CKATime, one calendar instant as whole seconds since the epoch, with conversions
// to and from broken-down local time (the process's time zone) and text. On 32-bit ARM time_t
// is 32 bits wide: instants after 2038-01-19 03:14:07 UTC cannot be held on that target.
// Thread safety: conversions to local time are serialised by the library's time lock; a
// CKATime object itself is not locked and must not be changed and read at the same time.
#ifndef ZUSTD_ZU_TIME_H
#define ZUSTD_ZU_TIME_H

#include <ctime>

#include "zu_export.h"
#include "zu_std.h"
#include "zu_string.h"

// A date-time value. Copyable.
class ZUSTD_API CKATime {
 public:
  // The epoch, 1970-01-01 00:00:00 UTC.
  CKATime();
  CKATime(const CKATime& t);
  CKATime& operator=(const CKATime& t);
  ~CKATime();

  // Local date and time, taken as standard time (no summer-time shift, deliberate: a summer
  // instant reads back one shift later). False, value unchanged, unless 1 <= nDay <= 31,
  // 1 <= nMonth <= 12, nYear >= 1970, 0 <= nHour <= 23, 0 <= nMinute, nSecond <= 59, or when
  // the platform cannot represent it. The day is not checked against the month: 31 February
  // becomes a day in March.
  bool SetTime(int nYear, int nMonth, int nDay, int nHour, int nMinute, int nSecond);
  // Parses "YYYY-MM-DD hh:mm:ss" (local standard time); fields are not range-checked but
  // normalised (minute 75 is the next hour), missing ones count as 0. False, value unchanged,
  // for null or a value the platform cannot represent.
  bool SetTime(const char* szTime);
  // Stores tTime; a negative tTime gives false and leaves the value unchanged.
  bool SetTime(time_t tTime);
  // The current time.
  void SetCurrentTime();

  // Seconds since the epoch.
  time_t GetTime() const;
  // Broken-down local time; wMilliseconds and wReserved are 0.
  void GetTime(STimeInfo& info) const;
  // Fields of the local time; each call converts anew.
  int GetYear() const;
  int GetMonth() const;  // 1..12
  int GetDay() const;    // 1..31
  int GetHour() const;
  int GetMinute() const;
  int GetSecond() const;
  // GetHour() < 12.
  bool IsAM() const;
  // Day of the week, 0 = Sunday .. 6 = Saturday: not a week number (name kept on purpose).
  int GetWeek() const;
  // Day of the year, 0 = 1 January.
  int GetDayOfYear() const;

  // Adds nSeconds + (nMinutes + (nHours + nDays * 24) * 60) * 60, wrapping as 32-bit signed
  // arithmetic; arguments may be negative and nothing is checked.
  void AddTime(int nDays, int nHours, int nMinutes, int nSeconds);

  // Local time as text: 1 "YYYY-MM-DD", 2 "hh:mm:ss", 3 "YYYY-MM-DD hh:mm:ss"; any other
  // format gives the empty string.
  CKAString ToString(int nFormat) const;

  // This instant minus t, in whole units truncated toward zero (positive when this is later).
  int WeeksTo(const CKATime& t) const;
  int DaysTo(const CKATime& t) const;
  int HoursTo(const CKATime& t) const;
  int MinsTo(const CKATime& t) const;
  int SecsTo(const CKATime& t) const;

  // Compare the two instants (whole seconds).
  bool operator==(const CKATime& t) const;
  bool operator!=(const CKATime& t) const;
  bool operator<(const CKATime& t) const;
  bool operator<=(const CKATime& t) const;
  bool operator>(const CKATime& t) const;
  bool operator>=(const CKATime& t) const;

 private:
  time_t m_tTime;
};

#endif  // ZUSTD_ZU_TIME_H
