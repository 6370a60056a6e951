// zustd command-line tool: pieces shared by the subcommand families. Each family registers its
// subcommands on the root CLI11 application; a subcommand's run stores its exit status in the
// Tool record, and main prints nothing more than the family did.
// Exit status: 0 success, 1 not found or not computable (para get of a missing key, an
// evaluation that failed), 2 bad input (usage, missing or unreadable file, bad number, bad
// formula, failed write). Messages are one line on stderr, starting "zustd: ".
#ifndef ZUSTD_TOOLS_ZUSTD_CLI_H
#define ZUSTD_TOOLS_ZUSTD_CLI_H

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace zustd_cli {

constexpr int kOk = 0;
constexpr int kNotFound = 1;
constexpr int kBadInput = 2;

// What a subcommand leaves for main.
struct Tool {
  int status = kOk;
};

// Writes "zustd: <message>" and a line feed to stderr; returns status.
int Fail(int status, const std::string& message);

// The shortest text that reads back to the same double (1.5, 12, 0.1, -inf, nan), or fixed
// point with `precision` decimals when one is given.
std::string FormatNumber(double value, const std::optional<int>& precision);

// Whole-text conversions: surrounding blanks allowed, nothing else left over. Doubles accept
// what strtod accepts (inf, nan, hex included); ints must fit an int.
bool ParseDouble(const std::string& text, double* value);
bool ParseInt(const std::string& text, int* value);

// The whole file (or stdin for "-") into *bytes; false with errno set when it cannot be read.
bool ReadAll(const std::string& path, std::string* bytes);

// Writes bytes to stdout; false on a write error.
bool WriteOut(const std::string& bytes);

// Registration of the subcommand families on the root application.
void AddParaCommands(CLI::App& app, Tool& tool);
void AddExprCommand(CLI::App& app, Tool& tool);
void AddLogCommands(CLI::App& app, Tool& tool);
void AddBase64Command(CLI::App& app, Tool& tool);
void AddTimeCommand(CLI::App& app, Tool& tool);

// --precision N, shared by the commands that print numbers.
void AddPrecisionOption(CLI::App* command, std::optional<int>* precision);

}  // namespace zustd_cli

#endif  // ZUSTD_TOOLS_ZUSTD_CLI_H
