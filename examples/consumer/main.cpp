// Uses an installed libzustd through its umbrella header: calls into the library and checks
// the answers, so a program linked against a stand-in or a broken build fails. Prints one line
// and exits 0 when every answer is the expected one.
#include <zustd.h>

#include <cstdio>
#include <cstring>

int main() {
  CKAString text("zu");
  text += "std";
  text.ToUpper();
  const CKAString joined = text + "-1";

  char encoded[16] = {};
  const unsigned char bytes[] = {'M', 'a', 'n', 'y'};
  CZUBase64 codec;
  codec.base64_encode(bytes, encoded, 4);

  CKAExpression formula;
  double value = 0;
  const bool evaluated = formula.Analysis("SQRT(A^2+B^2)") == 1 &&
                         formula.SetVarValue("A", 3.0) == 1 && formula.SetVarValue("B", 4.0) == 1 &&
                         formula.Evaluate(value) == 1;

  if (std::strcmp(joined.GetBuf(), "ZUSTD-1") != 0 || joined.GetLength() != 7 ||
      std::strcmp(encoded, "TWFueQ==") != 0 || !evaluated || value != 5.0) {
    std::printf("consumer: unexpected answers from libzustd ('%s', '%s', %g)\n", joined.GetBuf(),
                encoded, value);
    return 1;
  }
  std::printf("consumer: libzustd answers as expected (%s, %s, %g)\n", joined.GetBuf(), encoded,
              value);
  return 0;
}
