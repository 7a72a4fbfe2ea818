// zostat: runs the library's analyses on vector datasets from the command line.
// Exit status: 0 success, 1 failure (the library's message on stderr),
// 2 a mistake in the command line.
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "Command.h"
#include "host/ZoProgress.h"

namespace zostat {
Command InfoCommand();
Command AnnCommand();
Command WeightsShowCommand();
Command WeightsBuildCommand();
Command MoranCommand();
Command GeneralGCommand();
Command HotSpotCommand();
Command ClusterOutlierCommand();
Command WeightsToTableCommand();
Command WeightsDumpCommand();
Command OlsCommand();
Command GwrCommand();

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {InfoCommand(), AnnCommand(), MoranCommand(), GeneralGCommand(), HotSpotCommand(), ClusterOutlierCommand(), OlsCommand(), GwrCommand(), WeightsShowCommand(), WeightsBuildCommand(),
                                                 WeightsToTableCommand(), WeightsDumpCommand()};
  return commands;
}
}  // namespace zostat

namespace {

void PrintUsage(std::FILE* out) {
  std::fprintf(out,
               "Usage: zostat COMMAND [OPTIONS]\n"
               "       zostat --help | --version\n\nCommands:\n");
  for (const auto& c : zostat::Commands()) std::fprintf(out, "  %-20s %s\n", c.name.c_str(), c.summary.c_str());
  std::fprintf(out, "\nRun 'zostat COMMAND --help' for a command's options.\n");
}

void PrintCommandUsage(const zostat::Command& c, std::FILE* out) {
  std::fprintf(out, "Usage: zostat %s %s\n\n%s\n\nOptions:\n%s", c.name.c_str(), c.usage.c_str(), c.summary.c_str(),
               zostat::DescribeOptions(c.options).c_str());
}

extern "C" void OnInterrupt(int) { ZOC::ZoTerminalProgress::RequestCancel(); }

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    PrintUsage(stderr);
    return 2;
  }
  if (args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    PrintUsage(stdout);
    return 0;
  }
  if (args[0] == "--version") {
    std::printf("zostat %s\n", ZOSTAT_VERSION);
    return 0;
  }

  // Commands are one word ("info") or two ("weights show"): take the longest match.
  const zostat::Command* command = nullptr;
  std::size_t used = 0;
  for (const auto& c : zostat::Commands()) {
    const bool two = c.name.find(' ') != std::string::npos;
    const std::string given = two && args.size() >= 2 ? args[0] + " " + args[1] : args[0];
    if (c.name == given && (two ? 2u : 1u) > used) {
      command = &c;
      used = two ? 2 : 1;
    }
  }
  if (!command) {
    std::fprintf(stderr, "zostat: unknown command '%s'\n\n", args[0].c_str());
    PrintUsage(stderr);
    return 2;
  }
  args.erase(args.begin(), args.begin() + static_cast<long>(used));

  try {
    const zostat::Options options = zostat::Options::Parse(args, command->options);
    if (options.Has("help")) {
      PrintCommandUsage(*command, stdout);
      return 0;
    }
    ZOC::ZoTerminalProgress::SetQuiet(options.Has("quiet"));
    std::signal(SIGINT, OnInterrupt);
    return command->run(options);
  } catch (const zostat::UsageError& e) {
    std::fprintf(stderr, "zostat %s: %s\n\n", command->name.c_str(), e.what());
    PrintCommandUsage(*command, stderr);
    return 2;
  } catch (const zostat::Failure& e) {
    std::fprintf(stderr, "zostat %s: %s\n", command->name.c_str(), e.what());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zostat %s: unexpected error: %s\n", command->name.c_str(), e.what());
    return 1;
  }
}
