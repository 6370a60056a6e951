// zu_time: CKATime, an instant in whole seconds, and its local-time views.
#include "zu_time.h"

#include <cstdint>
#include <cstdio>

namespace {

constexpr int kSecondsPerMinute = 60;
constexpr int kSecondsPerHour = 3600;
constexpr int kSecondsPerDay = 86400;
constexpr int kSecondsPerWeek = 604800;

// mktime of local standard time (tm_isdst 0, deliberate); -1 when not representable.
time_t MakeStandardTime(int year, int month, int day, int hour, int minute, int second) {
  struct tm fields = {};
  fields.tm_sec = second;
  fields.tm_min = minute;
  fields.tm_hour = hour;
  fields.tm_mday = day;
  fields.tm_mon = month - 1;
  fields.tm_year = year - 1900;
  fields.tm_isdst = 0;
  return mktime(&fields);
}

// this - other in 64 bits, so that no difference of two instants overflows.
int64_t difference(time_t self, time_t other) {
  return static_cast<int64_t>(self) - static_cast<int64_t>(other);
}

bool InRange(int value, int low, int high) {
  return value >= low && value <= high;
}

// a + b with the wrap of 32-bit signed arithmetic, without undefined overflow.
int32_t WrappingAdd(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

int32_t WrappingMul(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

}  // namespace

CKATime::CKATime() : m_tTime(0) {}

CKATime::CKATime(const CKATime& t) : m_tTime(t.m_tTime) {}

CKATime& CKATime::operator=(const CKATime& t) {
  m_tTime = t.m_tTime;
  return *this;
}

CKATime::~CKATime() {}

bool CKATime::SetTime(int nYear, int nMonth, int nDay, int nHour, int nMinute, int nSecond) {
  if (!InRange(nDay, 1, 31) || !InRange(nMonth, 1, 12) || nYear < 1970 || !InRange(nHour, 0, 23) ||
      !InRange(nMinute, 0, 59) || !InRange(nSecond, 0, 59)) {
    return false;
  }
  const time_t t = MakeStandardTime(nYear, nMonth, nDay, nHour, nMinute, nSecond);
  if (t == static_cast<time_t>(-1)) return false;
  m_tTime = t;
  return true;
}

bool CKATime::SetTime(const char* szTime) {
  if (szTime == nullptr) return false;
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  // Neither the count of fields nor their ranges are checked: mktime normalises them.
  static_cast<void>(sscanf(szTime, "%04d-%02d-%02d %02d:%02d:%02d", &year, &month, &day, &hour,
                           &minute, &second));
  const time_t t = MakeStandardTime(year, month, day, hour, minute, second);
  if (t == static_cast<time_t>(-1)) return false;
  m_tTime = t;
  return true;
}

bool CKATime::SetTime(time_t tTime) {
  if (tTime < 0) return false;
  m_tTime = tTime;
  return true;
}

void CKATime::SetCurrentTime() {
  m_tTime = time(nullptr);
}

time_t CKATime::GetTime() const {
  return m_tTime;
}

void CKATime::GetTime(STimeInfo& info) const {
  info = ka_localtime(&m_tTime);
}

int CKATime::GetYear() const {
  return ka_localtime(&m_tTime).wYear;
}

int CKATime::GetMonth() const {
  return ka_localtime(&m_tTime).wMonth;
}

int CKATime::GetDay() const {
  return ka_localtime(&m_tTime).wDay;
}

int CKATime::GetHour() const {
  return ka_localtime(&m_tTime).wHour;
}

int CKATime::GetMinute() const {
  return ka_localtime(&m_tTime).wMinute;
}

int CKATime::GetSecond() const {
  return ka_localtime(&m_tTime).wSecond;
}

bool CKATime::IsAM() const {
  return GetHour() < 12;
}

int CKATime::GetWeek() const {
  return ka_localtime_week(&m_tTime);
}

int CKATime::GetDayOfYear() const {
  return ka_localtime_dayofyear(&m_tTime);
}

void CKATime::AddTime(int nDays, int nHours, int nMinutes, int nSeconds) {
  const int32_t hours = WrappingAdd(nHours, WrappingMul(nDays, 24));
  const int32_t minutes = WrappingAdd(nMinutes, WrappingMul(hours, 60));
  const int32_t delta = WrappingAdd(nSeconds, WrappingMul(minutes, 60));
  if (sizeof(time_t) == sizeof(int32_t)) {
    m_tTime = static_cast<time_t>(WrappingAdd(static_cast<int32_t>(m_tTime), delta));
  } else {
    m_tTime += delta;
  }
}

CKAString CKATime::ToString(int nFormat) const {
  char text[64] = "";
  // Each component is fetched by its own getter, that is, by its own conversion.
  switch (nFormat) {
    case 1:
      snprintf(text, sizeof text, "%04d-%02d-%02d", GetYear(), GetMonth(), GetDay());
      break;
    case 2:
      snprintf(text, sizeof text, "%02d:%02d:%02d", GetHour(), GetMinute(), GetSecond());
      break;
    case 3:
      snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", GetYear(), GetMonth(), GetDay(),
               GetHour(), GetMinute(), GetSecond());
      break;
    default:
      break;
  }
  return CKAString(text);
}

int CKATime::WeeksTo(const CKATime& t) const {
  return static_cast<int>(difference(m_tTime, t.m_tTime) / kSecondsPerWeek);
}

int CKATime::DaysTo(const CKATime& t) const {
  return static_cast<int>(difference(m_tTime, t.m_tTime) / kSecondsPerDay);
}

int CKATime::HoursTo(const CKATime& t) const {
  return static_cast<int>(difference(m_tTime, t.m_tTime) / kSecondsPerHour);
}

int CKATime::MinsTo(const CKATime& t) const {
  return static_cast<int>(difference(m_tTime, t.m_tTime) / kSecondsPerMinute);
}

int CKATime::SecsTo(const CKATime& t) const {
  return static_cast<int>(difference(m_tTime, t.m_tTime));
}

bool CKATime::operator==(const CKATime& t) const {
  return m_tTime == t.m_tTime;
}

bool CKATime::operator!=(const CKATime& t) const {
  return m_tTime != t.m_tTime;
}

bool CKATime::operator<(const CKATime& t) const {
  return m_tTime < t.m_tTime;
}

bool CKATime::operator<=(const CKATime& t) const {
  return m_tTime <= t.m_tTime;
}

bool CKATime::operator>(const CKATime& t) const {
  return m_tTime > t.m_tTime;
}

bool CKATime::operator>=(const CKATime& t) const {
  return m_tTime >= t.m_tTime;
}
