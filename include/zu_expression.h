// zu_expression: the formula evaluator. CKAExpression translates an infix formula over numbers,
// named variables, operators and functions (for example SIN(X)*2+Y) into a postfix ("Polish")
// token array once, and then evaluates that array as often as wanted against the current
// values of the formula's variables. SToken is one token, SVarOperand one variable.
// Thread safety: an object is used by one thread at a time. The keyword dictionary
// m_sTokenDict is shared by all objects; it is filled exactly once, safely even when the first
// objects are constructed on several threads at once, and is only read afterwards.
#ifndef ZUSTD_ZU_EXPRESSION_H
#define ZUSTD_ZU_EXPRESSION_H

#include "zu_array.h"
#include "zu_dict.h"
#include "zu_export.h"
#include "zu_stack.h"
#include "zu_string.h"

// Formula evaluator. Typical use: Analysis(text) until it returns 1; SetVarValue for each
// variable (by name, or by number 1 .. GetVarCount()); Evaluate; repeat setting and evaluating.
// The data members are public and their order is part of the binary interface; applications
// read the postfix tokens in m_arPolish. Analysis also keeps a compiled form of the formula in
// the spare slots of m_arVarOperand behind its m_nCount variables; Evaluate uses it only while
// m_arPolish is unchanged, so tokens edited in place are still evaluated as they stand.
// Not copyable: copy construction and assignment are deleted.
class ZUSTD_API CKAExpression {
 public:
  // One token: its text (at most 7 characters, deliberately cut there, then NUL), its code,
  // its operand count (for a variable in m_arPolish: the variable's number; for SUM, AVE, MAX,
  // MIN and ABS: the number of arguments given) and its precedence class 0..8.
  struct SToken {
    char m_szName[8];  // text, NUL-terminated
    int m_nType;       // token code
    int m_nParam;      // operand count or variable number
    int m_nPriority;   // precedence class
  };

  // One variable: its name in upper case and its current value (0.0 when registered).
  struct SVarOperand {
    char m_szName[32];  // upper-case name, NUL-terminated
    double m_dValue;    // current value
  };

  // An empty object: no text, no variables; Evaluate returns -1. The first object constructed
  // in the process fills the shared keyword dictionary.
  CKAExpression();
  // Frees the operator stack, the variable table, the postfix array and the text.
  ~CKAExpression();
  CKAExpression(const CKAExpression&) = delete;
  CKAExpression& operator=(const CKAExpression&) = delete;

  // Translates pszExpression into m_arPolish and registers its variables (numbered from 1 in
  // order of first occurrence, earlier variables forgotten). Returns 1 on success; -1 for a
  // syntax error or more than 65 variables (object left empty: no tokens, no variables); -4
  // when text is left over (partial m_arPolish kept, no variables); -5 for a null text
  // (nothing changed).
  int Analysis(const char* pszExpression);
  // Evaluates m_arPolish with the current variable values; allocates nothing. Returns 1 with
  // the value in dResult; -2 for SQRT, LOG or LN of a negative value; -1 for any other
  // failure (nothing analysed, too few operands, ASIN/ACOS outside [-1, 1], ...). dResult is
  // 0.0 on every failure. The object is not changed.
  int Evaluate(double& dResult);

  // Number of registered variables.
  int GetVarCount();
  // Sets strName to the name of variable nIndex (1-based) and returns 1; returns -1 for an
  // index out of range, leaving strName as a single blank " ".
  int GetVarName(int nIndex, CKAString& strName);
  // Stores dValue as the value of variable nIndex and returns 1; -1 for an index out of range.
  // Defined here, because applications call it for every variable before every Evaluate and
  // a call into the library would cost more than the store. The library still exports it for
  // binaries built against earlier headers; only its own definition sees the declaration.
  // Marked for export, so that a copy the compiler emits keeps the library's symbol visible.
#ifdef ZUSTD_EXPRESSION_EXPORT_SETTER
  int SetVarValue(int nIndex, double dValue);
#else
  ZUSTD_API int SetVarValue(int nIndex, double dValue) {
    const unsigned slot = static_cast<unsigned>(nIndex) - 1u;  // an index below 1 wraps
    if (slot >= static_cast<unsigned>(m_nVarCount) ||
        slot >= static_cast<unsigned>(m_arVarOperand.m_nCount)) {
      return -1;
    }
    m_arVarOperand.m_pData[slot].m_dValue = dValue;
    return 1;
  }
#endif
  // Copies the value of variable nIndex into dValue and returns 1; -1 and 0.0 for an index
  // out of range.
  int GetVarValue(int nIndex, double& dValue);
  // The 1-based number of the variable named pszName (case-insensitive), or -1 when there is
  // none. A null name returns -1.
  int FindVarID(const char* pszName);
  // SetVarValue(FindVarID(pszName), dValue): -1 for an unknown or null name.
  int SetVarValue(const char* pszName, double dValue);
  // GetVarValue(FindVarID(pszName), dValue): -1 and 0.0 for an unknown or null name.
  int GetVarValue(const char* pszName, double& dValue);
  // Sets str to the analysed text, trimmed, without the end marker; empty before any
  // Analysis. Returns 1.
  int GetExpression(CKAString& str);

  // The steps of Analysis, public for callers that drive them one by one.
  // Fills m_sTokenDict with the 43 keywords (an existing keyword is kept); returns 1.
  int InitTokenList();
  // Reads the next token of m_strExpression from m_nPos into tok and advances m_nPos. Returns
  // 1 for a token, 0 at the end of the text or at a character that is no token. A reading
  // position below 0 (nothing analysed) counts as the end.
  int GetNextToken(SToken& tok);
  // Runs the whole token stream through the precedence matrix into m_arPolish. Returns 1 when
  // the stream ended (end of text or an unknown character), -1 for a syntax error.
  int ChangeToPolishForm();
  // One step of the precedence matrix for an operator, bracket, comma, end marker or
  // fixed-operand function. Returns 1 or -1 (syntax error). A token whose precedence class is
  // outside 0..8 is a syntax error.
  int FixedParamProcess(SToken& tok);
  // Reads and translates the argument list that follows SUM, AVE, MAX, MIN or ABS (tok).
  // Returns 1 or -1 (syntax error). A square-bracket count above 66 generates only the names
  // A1 .. A66: the 66th variable is refused anyway, so this keeps huge counts from exhausting
  // memory without changing the result code.
  int NoFixedParamProcess(SToken& tok);
  // Registers a copy of *pVar (its name upper-cased in place, its value set to 0.0; a name
  // without a NUL in its 32 bytes is cut to 31). Returns the new variable's number, or -1
  // when 65 variables are registered already or pVar is null.
  int AddVarOperand(SVarOperand* pVar);
  // Registers the variables of m_arPolish and stores each variable token's number in its
  // m_nParam. Returns 1, or 0 when a variable is refused.
  int GetVarOperand();

  int m_nVarCount;                       // registered variables, == m_arVarOperand.m_nCount
  CKAString m_strExpression;             // the analysed text, trimmed, "#" appended
  int m_nPos;                            // lexer reading position; -1 before any Analysis
  int m_nLength;                         // length of m_strExpression
  CKAArray<SToken> m_arPolish;           // postfix tokens
  CKAArray<SVarOperand> m_arVarOperand;  // variable k is element k - 1
  CKAStack<SToken> m_stackOperator;      // operator stack of the translation, capacity 128

  static CKADict<SToken> m_sTokenDict;  // keyword text -> token, 64 buckets
  static bool m_bInitOK;                // true once m_sTokenDict is filled
};

#endif  // ZUSTD_ZU_EXPRESSION_H
