// A short tour of libzustd: strings, tokens, base64, a formula evaluated many times,
// a parameter file edited in place, and date-time values.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include "zustd.h"

namespace {

void Strings() {
  CKAString s;
  s.Format("%s, %d items", "  hello zustd", 3);
  s.TrimAll();
  s.ReplaceFind("zustd", "world", 0);
  std::printf("Format/TrimAll/ReplaceFind: '%s' (length %d)\n", s.GetBuf(), s.GetLength());

  CKAString list(" red, green,, blue ");
  std::printf("split on ',':");
  for (const CKAString& field : list.split(",")) std::printf(" '%s'", field.GetBuf());
  std::printf("\n");

  CKAToken token("a  b,c", ", ");
  CKAString t;
  std::printf("CKAToken:");
  while (token.GetToken(t)) std::printf(" '%s'", t.GetBuf());
  std::printf("\n");

  const unsigned char data[] = {'M', 'a', 'n', 'y'};
  char text[16];
  unsigned char back[16];
  CZUBase64 codec;
  codec.base64_encode(data, text, sizeof(data));
  int n = codec.base64_decode(text, back);
  std::printf("base64 of 'Many': %s, decodes to %d bytes\n", text, n);
}

void Formula() {
  CKAExpression expression;
  const char* formula = "SQRT(A^2+B^2)*COS(X)";
  if (expression.Analysis(formula) != 1) return;
  std::printf("%s in postfix:", formula);
  for (int i = 0; i < expression.m_arPolish.m_nCount; ++i)
    std::printf(" %s", expression.m_arPolish[i].m_szName);
  std::printf("\n");
  for (int step = 0; step < 3; ++step) {
    expression.SetVarValue("A", 3.0 * (step + 1));
    expression.SetVarValue("B", 4.0 * (step + 1));
    expression.SetVarValue("X", 0.0);
    double value = 0;
    expression.Evaluate(value);
    std::printf("  A=%g B=%g X=0 -> %g\n", 3.0 * (step + 1), 4.0 * (step + 1), value);
  }
}

void ParameterFile() {
  char dir[] = "/tmp/zustd-demo-XXXXXX";
  if (!mkdtemp(dir)) return;
  CKAString path;
  path.Format("%s/server.ini", dir);
  CKAFile file;
  file.SetFileName(path.GetBuf());
  file.Open(KA_FILE_WRITE);
  file.WriteLine("; demo settings");
  file.WriteLine("[net]");
  file.WriteLine("port = 80");
  file.Close();

  CKAPara para;
  para.SetFileName(path.GetBuf());
  bool found = false;
  int port = para.GetInt("net", "port", 0, &found);
  para.SetInt("net", "port", port + 1);
  para.SetBool("net", "keepalive", true);
  para.SetReal("limits", "load", 0.75);
  std::printf("port was %d (found %s); the file now reads:\n", port, found ? "yes" : "no");
  char line[256];
  file.Open(KA_FILE_READ);
  while (file.ReadLine(line, sizeof(line))) std::printf("  | %s", line);
  file.Close();
  file.Remove();
  rmdir(dir);
}

void Time() {
  CKATime t;
  t.SetTime(2024, 2, 28, 23, 30, 0);
  t.AddTime(1, 1, 0, 0);
  std::printf("2024-02-28 23:30:00 plus 1 day 1 hour: %s (day of week %d)\n",
              t.ToString(3).GetBuf(), t.GetWeek());
}

}  // namespace

int main() {
  setenv("TZ", "UTC", 1);
  Strings();
  Formula();
  ParameterFile();
  Time();
  return 0;
}
