// CKAExpression: the object, its keyword dictionary, the lexer, the translation to postfix
// form through the precedence matrix and the variable table. Evaluation is in
// zu_expression_tokens.cpp (token by token) and zu_expression_program.cpp (compiled).
// This source defines the exported copy of the setter the header defines inline.
#define ZUSTD_EXPRESSION_EXPORT_SETTER
#include "zu_expression.h"

#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>

#include "zu_expression_internal.h"

namespace {

using namespace zu_expression;  // token codes and the program of Evaluate

struct Keyword {
  const char* text;
  int code;
  int operands;
  int priority;
};

// The keyword dictionary's rows, in the order they are added (this fixes the chain order).
constexpr Keyword kKeywords[] = {
    {"#", kEnd, 0, 8},         {"@", kNegate, 1, 1},      {"+", kAdd, 2, 1},
    {"-", kSubtract, 2, 1},    {"*", kMultiply, 2, 2},    {"/", kDivide, 2, 2},
    {"^", kPower, 2, 3},       {"%", kRemainder, 2, 2},   {"MOD", kQuotient, 2, 2},
    {",", kComma, 0, 0},       {"(", kOpenRound, 0, 4},   {")", kCloseRound, 0, 5},
    {"[", kOpenSquare, 0, 4},  {"]", kCloseSquare, 0, 5}, {"C_PI", kNumber, 0, 0},
    {"C_E", kNumber, 0, 0},    {"AND", kAnd, 2, 6},       {"OR", kOr, 2, 6},
    {"NOT", kNot, 1, 6},       {">", kGreater, 2, 6},     {">=", kGreaterEqual, 2, 6},
    {"<", kLess, 2, 6},        {"<=", kLessEqual, 2, 6},  {"!=", kNotEqual, 2, 6},
    {"AVE", kAverage, 0, 7},   {"MAX", kMaximum, 0, 7},   {"MIN", kMinimum, 0, 7},
    {"SUM", kSum, 0, 7},       {"ABS", kAbs, 0, 7},       {"SIN", kSin, 1, 7},
    {"COS", kCos, 1, 7},       {"TAN", kTan, 1, 7},       {"ASIN", kAsin, 1, 7},
    {"ACOS", kAcos, 1, 7},     {"ATAN", kAtan, 1, 7},     {"SQRT", kSqrt, 1, 7},
    {"LOG", kLog, 1, 7},       {"LN", kLn, 1, 7},         {"EXP", kExp, 2, 7},  // 2 unused
    {"DTOR", kDegToRad, 1, 7}, {"RTOD", kRadToDeg, 1, 7}, {"CABS", kCabs, 2, 7},
    {"COSPHI", kCosPhi, 2, 7},
};
static_assert(sizeof(kKeywords) / sizeof(kKeywords[0]) == 43, "43 keywords");

// Precedence matrix: row = class of the operator on top of the stack, column = class of the
// incoming token. -1 push the incoming token; 1 move the top to the output and compare again;
// 0 discard the top (a matching pair); -2 syntax error. Reproduced value for value: its odd
// entries (left-associative "^", "((" moving the first bracket out) are the grammar.
constexpr int kClasses = 9;
constexpr int s_arPriority[kClasses * kClasses] = {
    -2, -2, -2, -2, -2, -2, -2, -2, -2,  // 0 operand, comma
    -2, 1,  -1, -1, -1, 1,  1,  -1, 1,   // 1 + - @
    -2, 1,  1,  -1, -1, 1,  1,  -1, 1,   // 2 * / % MOD
    -2, 1,  1,  1,  -1, 1,  1,  -1, 1,   // 3 ^
    -2, -1, -1, -1, 1,  0,  -1, -1, -2,  // 4 opening bracket
    -2, 1,  1,  1,  1,  1,  1,  1,  1,   // 5 closing bracket
    -2, -1, -1, -1, -1, 1,  1,  -1, 1,   // 6 logic and comparison
    -2, 1,  1,  1,  -1, 1,  1,  -2, 1,   // 7 function
    -2, -1, -1, -1, -1, -2, -1, -1, 0,   // 8 end marker
};

constexpr int kMaxVariables = 65;       // the 66th is refused
constexpr int kMaxGeneratedNames = 66;  // A1 .. A66 already force that refusal

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsNameStart(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0;
}
bool IsNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}
char Upper(char c) {
  return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

bool IsListFunction(int code) {
  return code == kSum || code == kAverage || code == kMaximum || code == kMinimum || code == kAbs;
}

bool IsOperand(int code) {
  return code == kVariable || code == kNumber;
}

void CopyKind(const SToken& from, SToken& to) {
  to.m_nType = from.m_nType;
  to.m_nParam = from.m_nParam;
  to.m_nPriority = from.m_nPriority;
}

// Copies at most 7 characters of text into name and fills the rest of its 8 bytes with NUL.
void SetName(char (&name)[8], const char* text) {
  std::memset(name, 0, sizeof(name));
  std::memcpy(name, text, strnlen(text, sizeof(name) - 1));
}

SToken MakeToken(const char* text, int code, int operands, int priority) {
  SToken tok = {};
  SetName(tok.m_szName, text);
  tok.m_nType = code;
  tok.m_nParam = operands;
  tok.m_nPriority = priority;
  return tok;
}

// Collects characters for a token text: keeps the first 7 (the deliberate limit), counts all.
class TokenText {
 public:
  void Add(char c) {
    if (m_length < 7) m_text[m_length] = c;
    if (m_length < INT_MAX) ++m_length;
  }
  int Length() const { return m_length; }
  const char* Text() const { return m_text; }
  void Set(const char* text) { SetName(m_text, text); }
  void CopyTo(char (&name)[8]) const { std::memcpy(name, m_text, sizeof(name)); }

 private:
  char m_text[8] = {};
  int m_length = 0;
};

}  // namespace

CKADict<CKAExpression::SToken> CKAExpression::m_sTokenDict(64);
bool CKAExpression::m_bInitOK = false;

CKAExpression::CKAExpression()
    : m_nVarCount(0),
      m_strExpression(),
      m_nPos(-1),
      m_nLength(0),
      m_arPolish(),
      m_arVarOperand(),
      m_stackOperator(128) {
  // One-time, thread-safe filling of the shared dictionary.
  static const bool filled = [this] {
    InitTokenList();
    m_bInitOK = true;
    return true;
  }();
  (void)filled;
}

CKAExpression::~CKAExpression() = default;

int CKAExpression::InitTokenList() {
  for (const Keyword& k : kKeywords) {
    m_sTokenDict.Add(k.text, MakeToken(k.text, k.code, k.operands, k.priority));
  }
  return 1;
}

// ---- Lexer ----

int CKAExpression::GetNextToken(SToken& tok) {
  const int end = std::min(m_nLength, m_strExpression.GetLength());
  if (m_nPos < 0 || m_nPos >= end) return 0;
  tok.m_nType = -1;
  const char* text = m_strExpression.GetBuf();
  int pos = m_nPos;
  while (pos < end && IsBlank(text[pos])) ++pos;
  m_nPos = pos;
  if (pos >= end) return 0;

  TokenText work;
  SToken entry;
  if (IsNameStart(text[pos])) {
    for (; pos < end && IsNameChar(text[pos]); ++pos) work.Add(Upper(text[pos]));
    // Keywords have at most 6 characters; a longer name is always a variable.
    if (work.Length() > 7 || !m_sTokenDict.Find(work.Text(), entry)) {
      tok.m_nType = kVariable;  // operand count and class stay as they were
    } else {
      if (entry.m_nType == kNumber) {
        // The constants are carried as 7-character number texts, deliberately not full doubles.
        work.Set(std::strcmp(work.Text(), "C_PI") == 0 ? "3.14159" : "2.71828");
      }
      CopyKind(entry, tok);
    }
  } else if (IsDigit(text[pos])) {
    for (; pos < end && IsDigit(text[pos]); ++pos) work.Add(text[pos]);
    if (pos < end && text[pos] == '.') {
      for (work.Add(text[pos++]); pos < end && IsDigit(text[pos]); ++pos) work.Add(text[pos]);
    }
    tok.m_nType = kNumber;  // the class stays as it was
    tok.m_nParam = 0;
  } else {
    const char c = text[pos++];
    work.Add(c);
    if ((c == '>' || c == '<' || c == '!') && pos < end && text[pos] == '=') work.Add(text[pos++]);
    m_nPos = pos;
    if (!m_sTokenDict.Find(work.Text(), entry)) {
      tok.m_nType = -1;
      return 0;
    }
    CopyKind(entry, tok);
  }
  m_nPos = pos;
  work.CopyTo(tok.m_szName);
  return 1;
}

// ---- Translation ----

int CKAExpression::Analysis(const char* pszExpression) {
  if (!pszExpression) return -5;
  const char* own = m_strExpression.GetBuf();
  if (pszExpression >= own && pszExpression <= own + m_strExpression.GetLength()) {
    const CKAString copy(pszExpression);  // the text lives in our own buffer
    return Analysis(copy.GetBuf());
  }
  m_strExpression = pszExpression;
  m_strExpression.TrimAll();
  m_strExpression += "#";
  m_nLength = m_strExpression.GetLength();
  m_nPos = 0;
  m_arPolish.m_nCount = 0;
  m_arVarOperand.m_nCount = 0;
  m_nVarCount = 0;
  SToken discarded;
  while (m_stackOperator.Pop(discarded)) {
  }

  const int rc = ChangeToPolishForm();
  if (rc < 0 || (m_nPos + 1 >= m_nLength && GetVarOperand() <= 0)) {
    m_arPolish.m_nCount = 0;
    m_arVarOperand.m_nCount = 0;
    m_nVarCount = 0;
    return -1;
  }
  if (m_nPos + 1 < m_nLength) return -4;
  StoreProgram(m_arPolish, m_arVarOperand);
  return 1;
}

int CKAExpression::ChangeToPolishForm() {
  m_stackOperator.Push(MakeToken("#", kEnd, 0, 8));
  SToken tok = MakeToken("", -1, 0, 0);
  while (GetNextToken(tok)) {
    if (IsOperand(tok.m_nType)) {
      m_arPolish.AddBefore(m_arPolish.m_nCount, tok);
    } else if (IsListFunction(tok.m_nType)) {
      if (NoFixedParamProcess(tok) < 0) return -1;
    } else if (FixedParamProcess(tok) < 0) {
      return -1;
    }
  }
  return 1;
}

int CKAExpression::FixedParamProcess(SToken& tok) {
  // Once the top has moved to the output, a later error only drops tok: the result is 1
  // whatever the repeated comparison finds. Deliberate: it makes 1+2) and (1+2 valid.
  int failure = -1;
  for (;;) {
    const CKAStack<SToken>& stack = m_stackOperator;
    if (stack.m_nCount < 1 || stack.m_nTop < 0 || stack.m_nTop >= stack.m_nMaxSize) {
      return failure;
    }
    const int top = stack.m_pData[stack.m_nTop].m_nPriority;
    const int incoming = tok.m_nPriority;
    if (top < 0 || top >= kClasses || incoming < 0 || incoming >= kClasses) return failure;
    SToken moved;
    switch (s_arPriority[top * kClasses + incoming]) {
      case 0:
        m_stackOperator.Pop(moved);
        return 1;
      case 1:
        if (!m_stackOperator.Pop(moved)) return failure;
        m_arPolish.AddBefore(m_arPolish.m_nCount, moved);
        failure = 1;
        break;
      case -1:
        m_stackOperator.Push(tok);  // a full stack loses tok without an error
        return 1;
      default:
        return failure;
    }
  }
}

int CKAExpression::NoFixedParamProcess(SToken& tok) {
  SToken arg = tok;
  if (!GetNextToken(arg)) return -1;
  if (arg.m_nType == kOpenRound) {
    int n = 0;
    for (;;) {
      if (!GetNextToken(arg)) return -1;
      if (arg.m_nType == kComma) continue;
      if (arg.m_nType == kCloseRound) break;
      if (!IsOperand(arg.m_nType)) return -1;
      ++n;
      m_arPolish.AddBefore(m_arPolish.m_nCount, arg);
    }
    tok.m_nParam = n;
    m_arPolish.AddBefore(m_arPolish.m_nCount, tok);
    return 1;
  }
  if (arg.m_nType != kOpenSquare) return -1;
  if (!GetNextToken(arg) || arg.m_nType != kNumber) return -1;
  const int n = static_cast<int>(std::strtol(arg.m_szName, nullptr, 10));
  for (int i = 1; i <= std::min(n, kMaxGeneratedNames); ++i) {
    char name[16];
    std::snprintf(name, sizeof(name), "A%d", i);
    m_arPolish.AddBefore(m_arPolish.m_nCount, MakeToken(name, kVariable, 0, 0));
  }
  tok.m_nParam = n;
  m_arPolish.AddBefore(m_arPolish.m_nCount, tok);
  if (!GetNextToken(arg) || arg.m_nType != kCloseSquare) return -1;
  return 1;
}

// ---- Variables ----

int CKAExpression::AddVarOperand(SVarOperand* pVar) {
  if (!pVar || m_nVarCount > kMaxVariables - 1) return -1;
  pVar->m_szName[sizeof(pVar->m_szName) - 1] = '\0';
  for (char* p = pVar->m_szName; *p; ++p) *p = Upper(*p);
  pVar->m_dValue = 0.0;
  m_arVarOperand.AddBefore(m_arVarOperand.m_nCount, *pVar);
  m_nVarCount = m_arVarOperand.m_nCount;
  return m_nVarCount;
}

int CKAExpression::GetVarOperand() {
  for (int i = 0; i < m_arPolish.m_nCount; ++i) {
    SToken& tok = m_arPolish.m_pData[i];
    if (tok.m_nType != kVariable) continue;
    SVarOperand var = {};
    std::memcpy(var.m_szName, tok.m_szName, sizeof(tok.m_szName));
    var.m_szName[sizeof(tok.m_szName) - 1] = '\0';
    int id = FindVarID(var.m_szName);
    if (id <= 0) id = AddVarOperand(&var);
    if (id < 0) return 0;
    tok.m_nParam = id;
  }
  return 1;
}

int CKAExpression::FindVarID(const char* pszName) {
  if (!pszName) return -1;
  char name[sizeof(SVarOperand::m_szName)];
  size_t length = 0;
  for (; pszName[length] != '\0'; ++length) {
    if (length + 1 >= sizeof(name)) return -1;  // longer than any stored name
    name[length] = Upper(pszName[length]);
  }
  name[length] = '\0';
  const int count = std::min(m_nVarCount, m_arVarOperand.m_nCount);
  for (int i = 0; i < count; ++i) {
    if (std::strncmp(m_arVarOperand.m_pData[i].m_szName, name, sizeof(name)) == 0) return i + 1;
  }
  return -1;
}

int CKAExpression::GetVarCount() {
  return m_nVarCount;
}

int CKAExpression::GetVarName(int nIndex, CKAString& strName) {
  strName = " ";
  if (nIndex < 1 || nIndex > m_nVarCount || nIndex > m_arVarOperand.m_nCount) return -1;
  char name[sizeof(SVarOperand::m_szName) + 1] = {};
  std::memcpy(name, m_arVarOperand.m_pData[nIndex - 1].m_szName, sizeof(SVarOperand::m_szName));
  strName = name;
  return 1;
}

int CKAExpression::SetVarValue(int nIndex, double dValue) {
  // One unsigned comparison each: an index below 1 wraps to a huge value.
  const unsigned slot = static_cast<unsigned>(nIndex) - 1u;
  if (slot >= static_cast<unsigned>(m_nVarCount) ||
      slot >= static_cast<unsigned>(m_arVarOperand.m_nCount)) {
    return -1;
  }
  m_arVarOperand.m_pData[slot].m_dValue = dValue;
  return 1;
}

int CKAExpression::GetVarValue(int nIndex, double& dValue) {
  dValue = 0.0;
  if (nIndex < 1 || nIndex > m_nVarCount || nIndex > m_arVarOperand.m_nCount) return -1;
  dValue = m_arVarOperand.m_pData[nIndex - 1].m_dValue;
  return 1;
}

int CKAExpression::SetVarValue(const char* pszName, double dValue) {
  return SetVarValue(FindVarID(pszName), dValue);
}

int CKAExpression::GetVarValue(const char* pszName, double& dValue) {
  return GetVarValue(FindVarID(pszName), dValue);
}

int CKAExpression::GetExpression(CKAString& str) {
  str = m_strExpression;
  if (str.GetLength() > 0) str.RemoveAt(str.GetLength() - 1, 1);
  return 1;
}

// Evaluate is defined in zu_expression_program.cpp, beside the program it runs.
