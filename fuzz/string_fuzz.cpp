// Fuzz target: sequences of CKAString operations with arbitrary arguments on three strings,
// including pointers into a string's own buffer. After every step the string must keep its
// invariants: a non-null buffer, a NUL at the length counter, no text beyond the counter.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_input.h"
#include "zu_string.h"

namespace {

constexpr int kMaxLength = 1 << 16;  // keeps a run's memory small; growth ops stop above it

void CheckInvariants(const CKAString& s) {
  const char* buf = s.GetBuf();
  FUZZ_CHECK(buf != nullptr);
  FUZZ_CHECK(s.GetLength() >= 0);
  FUZZ_CHECK(buf[s.GetLength()] == '\0');
  FUZZ_CHECK(static_cast<int>(std::strlen(buf)) <= s.GetLength());
  FUZZ_CHECK(s.IsEmpty() == (s.GetLength() < 1));
}

// A size argument bounded so that one step never reserves more than a few kilobytes.
int SmallSize(FuzzInput& in) {
  return in.Int() % 4096;
}

// The text argument: fuzzer bytes, a null pointer, or a pointer into a string's own buffer.
const char* TextArg(FuzzInput& in, std::string& holder, const CKAString& self) {
  switch (in.Pick(8)) {
    case 0:
      return nullptr;
    case 1: {
      int len = static_cast<int>(std::strlen(self.GetBuf()));
      return self.GetBuf() + (len > 0 ? in.Pick(static_cast<unsigned>(len) + 1) : 0);
    }
    default:
      holder = in.Text(48);
      return holder.c_str();
  }
}

void CheckFind(const CKAString& s, const char* pat, int start, int r) {
  if (r < 0) return;
  FUZZ_CHECK(pat != nullptr && start >= 0 && r >= start && r <= s.GetLength());
  FUZZ_CHECK(std::strncmp(s.GetBuf() + r, pat, std::strlen(pat)) == 0);
}

void Step(FuzzInput& in, std::vector<CKAString>& pool) {
  CKAString& s = pool[in.Pick(static_cast<unsigned>(pool.size()))];
  const CKAString& other = pool[in.Pick(static_cast<unsigned>(pool.size()))];
  const bool may_grow = s.GetLength() < kMaxLength && other.GetLength() < kMaxLength;
  std::string holder;
  switch (in.Pick(40)) {
    case 0:
      s = CKAString();
      break;
    case 1: {
      char c = static_cast<char>(in.Byte());
      s = CKAString(c, in.Int() % 64);
      break;
    }
    case 2:
      s = CKAString(TextArg(in, holder, s));
      break;
    case 3:
      s = CKAString(SmallSize(in));
      break;
    case 4:
      s = CKAString(other);
      break;
    case 5:
      if (may_grow) s.AddNum(in.Int() % 256);
      break;
    case 6:
      if (may_grow) s.AddSize(SmallSize(in));
      break;
    case 7:
      if (may_grow) s.SetSize(SmallSize(in));
      break;
    case 8:
      s.FreeExtra();
      break;
    case 9:
      s.Empty();
      break;
    case 10:
      if (may_grow) s = other;
      break;
    case 11:
      s = TextArg(in, holder, s);
      break;
    case 12:
      s = static_cast<char>(in.Byte());
      break;
    case 13:
      if (may_grow) s += other;
      break;
    case 14:
      if (may_grow) s += TextArg(in, holder, s);
      break;
    case 15:
      if (may_grow) s += static_cast<char>(in.Byte());
      break;
    case 16:
      s.ToUpper();
      break;
    case 17:
      s.ToLower();
      break;
    case 18:
      s.ToReverse();
      break;
    case 19: {
      int pos = in.Int() % 80;
      const char* t = TextArg(in, holder, s);
      if (may_grow) s.AddAt(pos, t);
      break;
    }
    case 20: {
      int pos = in.Int() % 80, count = in.Int() % 80;
      s.RemoveAt(pos, count);
      break;
    }
    case 21: {
      int pos = in.Int() % 80, count = in.Int() % 80;
      const char* t = TextArg(in, holder, s);
      if (may_grow) s.ReplaceAt(pos, count, t);
      break;
    }
    case 22: {
      const char* pat = TextArg(in, holder, s);
      int nth = in.Int() % 8, start = in.Int() % 80;
      CheckFind(s, pat, start, s.Find(pat, nth, start));
      s.FindNoCase(pat, nth, start);
      break;
    }
    case 23: {
      const char* pat = TextArg(in, holder, s);
      int start = in.Int();
      FUZZ_CHECK(s.GetStrCount(pat, start) >= 0);
      FUZZ_CHECK(s.GetStrCountNoCase(pat, start) >= 0);
      break;
    }
    case 24: {
      std::string find = in.Text(8), repl = in.Text(8);
      bool null_find = in.Bool();
      if (may_grow) s.ReplaceFind(null_find ? nullptr : find.c_str(), repl.c_str(), 7);
      break;
    }
    case 25: {
      const char* t = TextArg(in, holder, s);
      int n = in.Int();
      if (may_grow) s.Format("%s|%d|%s", t ? t : "", n, s.GetBuf());
      break;
    }
    case 26:
      s.Format(nullptr);
      break;
    case 27:
      s.ToInt();
      s.ToReal();
      break;
    case 28: {
      int n = in.Int();
      CKAString l = s.Left(n);
      CKAString r = s.Right(n);
      CheckInvariants(l);
      CheckInvariants(r);
      break;
    }
    case 29: {
      int start = in.Int(), count = in.Int() % 100;
      CKAString m = s.Mid(start, count);
      CheckInvariants(m);
      break;
    }
    case 30:
      s.TrimLeft();
      break;
    case 31:
      s.TrimRight();
      break;
    case 32:
      s.TrimAll();
      break;
    case 33: {
      int i = in.Int();
      const CKAString& cs = s;
      char c = cs.GetChar(i);
      FUZZ_CHECK(c == cs[i]);
      if (s.GetLength() > 0) {
        char b = static_cast<char>(in.Byte());
        s[i] = b != '\0' ? b : 'z';
      }
      break;
    }
    case 34: {
      std::vector<CKAString> parts = s.split(CKAString(in.Text(4).c_str()));
      for (const CKAString& p : parts) {
        CheckInvariants(p);
        FUZZ_CHECK(!p.IsEmpty());
      }
      break;
    }
    case 35: {
      const char* t = TextArg(in, holder, s);
      CKAString a = s + t, b = t + s, c = s + other, d = s + static_cast<char>(in.Byte());
      CKAString e = static_cast<char>(in.Byte()) + s;
      CheckInvariants(a);
      CheckInvariants(b);
      CheckInvariants(c);
      CheckInvariants(d);
      CheckInvariants(e);
      break;
    }
    case 36: {
      const char* t = TextArg(in, holder, s);
      CKAString copy(other);
      bool r = (s == t) + (s != t) + (s < t) + (s <= t) + (s > t) + (s >= t);
      r = r && ((s == copy) + (s != copy) + (s < copy) + (s <= copy) + (s > copy) + (s >= copy));
      FUZZ_CHECK(r);
      break;
    }
    case 37:
      if (may_grow) s += s;
      break;
    case 38: {
      CKAString& alias = s;
      s = alias;  // self-assignment is a defined case: it empties the string
      break;
    }
    default: {
      if (s.GetLength() > 0)
        s.GetBuf()[in.Pick(static_cast<unsigned>(s.GetLength()))] = static_cast<char>(in.Byte());
      break;
    }
  }
  CheckInvariants(s);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput in(data, size);
  std::vector<CKAString> pool(3);
  while (!in.Empty()) Step(in, pool);
  return 0;
}
