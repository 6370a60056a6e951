// zustd: a command-line shell over libzustd for scripts, installers and device maintenance.
// Reading and changing parameter files, evaluating formulas, reading and adding log entries,
// base64 and time conversions, all through the library itself, so that the results are
// exactly the ones applications get.
#include <cstdio>

#include "cli.h"
#include "zustd_version.h"

namespace {

// CLI11's own exit codes are replaced by the tool's: 0 for --help and --version, 2 for every
// usage error, reported in one line.
int UsageError(const CLI::ParseError& e) {
  return zustd_cli::Fail(zustd_cli::kBadInput, std::string(e.what()) + " (see zustd --help)");
}

// CLI11 reports a mistyped subcommand as a missing one; name it instead. Returns the
// unknown word, or "" when the subcommand path is fine (or left to CLI11).
std::string UnknownSubcommand(const CLI::App& app, int argc, char** argv) {
  const CLI::App* level = &app;
  for (int i = 1; i < argc && !level->get_subcommands({}).empty(); ++i) {
    const std::string word = argv[i];
    if (word.empty() || word[0] == '-') return "";
    const CLI::App* next = nullptr;
    for (const CLI::App* sub : level->get_subcommands({})) {
      if (sub->check_name(word)) next = sub;
    }
    if (next == nullptr) return word;
    level = next;
  }
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Read and change parameter files, evaluate formulas, read and add log entries "
      "with the zustd library.",
      "zustd");
  app.set_version_flag("--version", "zustd " ZUSTD_VERSION_TEXT);
  app.require_subcommand(1);
  app.fallthrough(false);
  zustd_cli::Tool tool;
  zustd_cli::AddParaCommands(app, tool);
  zustd_cli::AddExprCommand(app, tool);
  zustd_cli::AddLogCommands(app, tool);
  zustd_cli::AddBase64Command(app, tool);
  zustd_cli::AddTimeCommand(app, tool);
  const std::string unknown = UnknownSubcommand(app, argc, argv);
  if (!unknown.empty()) {
    return zustd_cli::Fail(zustd_cli::kBadInput,
                           "unknown subcommand \"" + unknown + "\" (see zustd --help)");
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    return UsageError(e);
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    return zustd_cli::Fail(zustd_cli::kBadInput, "cannot write the output");
  }
  return tool.status;
}
