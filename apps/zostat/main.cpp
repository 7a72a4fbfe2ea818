// zostat: runs the library's analyses on vector datasets from the command line.
// Exit status: 0 success, 1 failure (the library's message on stderr),
// 2 a mistake in the command line. Every message on stderr names its
// identifier.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "Command.h"
#include "host/ZoMessageIds.h"
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
Command DbscanCommand();
Command HdbscanCommand();
Command OpticsCommand();
Command WeightsToTableCommand();
Command WeightsDumpCommand();
Command OlsCommand();
Command GwrCommand();
Command MeanCenterCommand();
Command MedianCenterCommand();
Command CentralFeatureCommand();
Command StandardDistanceCommand();
Command EllipseCommand();
Command DirectionalMeanCommand();
Command MapCommand();

const std::vector<Command>& Commands() {
  static const std::vector<Command> commands = {InfoCommand(),
                                                AnnCommand(),
                                                MoranCommand(),
                                                GeneralGCommand(),
                                                HotSpotCommand(),
                                                ClusterOutlierCommand(),
                                                DbscanCommand(),
                                                HdbscanCommand(),
                                                OpticsCommand(),
                                                OlsCommand(),
                                                GwrCommand(),
                                                WeightsShowCommand(),
                                                WeightsBuildCommand(),
                                                WeightsToTableCommand(),
                                                WeightsDumpCommand(),
                                                MeanCenterCommand(),
                                                MedianCenterCommand(),
                                                CentralFeatureCommand(),
                                                StandardDistanceCommand(),
                                                EllipseCommand(),
                                                DirectionalMeanCommand(),
                                                MapCommand()};
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

// The first SIGINT, SIGTERM or SIGHUP asks the run to stop: the analysis
// polls for it, removes its temporaries and fails with "IMb030", and the
// output is left as it was. A second signal ends the process at once.
extern "C" void OnStopSignal(int signal) {
  ZOC::ZoTerminalProgress::RequestCancel();
  std::signal(signal, SIG_DFL);
}

void CatchStopSignals() {
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = OnStopSignal;
  sigemptyset(&action.sa_mask);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

bool AsksForHelp(const std::vector<std::string>& args) {
  for (const auto& a : args)
    if (a == "--help" || a == "-h") return true;
  return false;
}

// Lists every command whose name begins with `group` ("weights") on `out`;
// false when there is none. A null `out` only asks whether there is one.
bool PrintGroupUsage(const std::string& group, std::FILE* out) {
  bool any = false;
  for (const auto& c : zostat::Commands()) {
    if (c.name.rfind(group + " ", 0) != 0) continue;
    if (!out) return true;
    if (!any) std::fprintf(out, "Usage: zostat %s SUBCOMMAND [OPTIONS]\n\nSubcommands:\n", group.c_str());
    std::fprintf(out, "  %-20s %s\n", c.name.c_str(), c.summary.c_str());
    any = true;
  }
  if (any && out) std::fprintf(out, "\nRun 'zostat %s SUBCOMMAND --help' for a subcommand's options.\n", group.c_str());
  return any;
}

// A message that names no identifier gets the general one of its kind.
std::string WithIdentifier(const std::string& text, const char* fallback) {
  return zostat::HasIdentifier(text) ? text : zostat::MessageText(fallback, text);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    std::fprintf(stderr, "zostat: %s\n\n", zostat::MessageText(ZOC::msg::EUa051, "no command given").c_str());
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
    const bool group = PrintGroupUsage(args[0], nullptr);
    // "zostat weights --help" asks for the group's commands.
    if (group && args.size() >= 2 && AsksForHelp({args[1]})) {
      PrintGroupUsage(args[0], stdout);
      return 0;
    }
    const std::string given = group && args.size() >= 2 ? args[0] + " " + args[1] : args[0];
    std::fprintf(stderr, "zostat: %s\n\n",
                 zostat::MessageText(ZOC::msg::EUa051, "unknown command '" + given + "'").c_str());
    if (!group || !PrintGroupUsage(args[0], stderr)) PrintUsage(stderr);
    return 2;
  }
  args.erase(args.begin(), args.begin() + static_cast<long>(used));
  if (AsksForHelp(args)) {
    PrintCommandUsage(*command, stdout);
    return 0;
  }

  try {
    const zostat::Options options = zostat::Options::Parse(command->name, args, command->options);
    // The progress object is always there, for cancellation; it draws only
    // on a terminal and never under --quiet or --json.
    ZOC::ZoTerminalProgress::SetQuiet(options.Has("quiet") || options.Has("json"));
    CatchStopSignals();
    return command->run(options);
  } catch (const zostat::UsageError& e) {
    std::fprintf(stderr, "zostat %s: %s\n\n", command->name.c_str(),
                 WithIdentifier(e.what(), ZOC::msg::EUa050).c_str());
    PrintCommandUsage(*command, stderr);
    return 2;
  } catch (const zostat::Failure& e) {
    std::fprintf(stderr, "zostat %s: %s\n", command->name.c_str(), WithIdentifier(e.what(), ZOC::msg::EUa019).c_str());
    return 1;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "zostat %s: %s\n", command->name.c_str(),
                 zostat::MessageText(ZOC::msg::EUa019, "out of memory").c_str());
    return 1;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zostat %s: %s\n", command->name.c_str(),
                 WithIdentifier(std::string("unexpected error: ") + e.what(), ZOC::msg::EUa019).c_str());
    return 1;
  }
}
