// zostat: runs the library's analyses on vector datasets from the command line.
// Exit status: 0 success, 1 failure (the library's message on stderr),
// 2 a mistake in the command line. Every message on stderr names its
// identifier.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Command.h"
#include "common/Progress.h"
#include "host/ZoFile.h"
#include "host/ZoMessageIds.h"
#include "host/ZoProgress.h"

namespace zostat {
Command InfoCommand();
Command AnnCommand();
Command WeightsShowCommand();
Command WeightsBuildCommand();
Command MoranCommand();
Command GeneralGCommand();
Command IncrementalCommand();
Command GeoDetectorCommand();
Command HotSpotCommand();
Command OptimizedHotSpotCommand();
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
                                                IncrementalCommand(),
                                                GeoDetectorCommand(),
                                                HotSpotCommand(),
                                                OptimizedHotSpotCommand(),
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

// SIGINT, SIGTERM and SIGHUP stop a run. The first asks it to stop: the
// analysis polls for it, removes its temporaries and fails with "IMb030",
// and the output is left as it was. That takes a moment, and a user who
// presses Ctrl-C again (or a supervisor that sends SIGTERM after SIGINT)
// wants the process gone now; so the second ends it at once, from the
// handler. The handler cannot unwind the run or call anything that may
// allocate or take a lock (the run may be inside malloc, stdio or GDAL), so
// it removes what the run has listed in ZoTempRegistry (scratch folders
// beside the output, temporary weights files), which takes only
// async-signal-safe calls, writes the message prepared beforehand and
// calls _exit(1): the status of any failed run, with its identifier, as
// after the first signal. It does not touch the output itself: an output
// caught half-way through being replaced keeps SQLite's journal beside it,
// which undoes the change on the next opening. Before it starts cleaning
// up it gives the three signals their default action back and unblocks
// them, so a third one ends the process even then.
std::atomic<int> g_stopSignals{0};
std::atomic<bool> g_failureReported{false};  // the run's own message is out: the handler adds none
char g_stopMessage[512];
std::size_t g_stopMessageLength = 0;

extern "C" void OnStopSignal(int) {
  if (g_stopSignals.fetch_add(1) == 0) {
    ZOC::front::RequestStop();
    return;
  }
  sigset_t stops;
  sigemptyset(&stops);
  for (int stop : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&stops, stop);
    std::signal(stop, SIG_DFL);
  }
  sigprocmask(SIG_UNBLOCK, &stops, nullptr);
  ZOC::ZoTempRegistry::RemoveAllNow();
  if (!g_failureReported.load()) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, g_stopMessage, g_stopMessageLength);
  }
  _exit(1);
}

void CatchStopSignals(const std::string& command) {
  // The message after a second signal, made now: the handler cannot format.
  const std::string text =
      (isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "") +
      ("zostat " + command + ": " + zostat::MessageText(ZOC::msg::IMb030, "stopped at once by a second signal") + "\n");
  g_stopMessageLength = std::min(text.size(), sizeof g_stopMessage);
  std::memcpy(g_stopMessage, text.data(), g_stopMessageLength);
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = OnStopSignal;
  // Each signal is held back while the handler runs for another, so the
  // count of signals is never raced.
  sigemptyset(&action.sa_mask);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&action.sa_mask, signal);
  for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

// The progress object of each analysis (common/Progress.h), drawn as the
// host's terminal bar: only on a terminal, never under --quiet or --json.
class TerminalProgress : public ZOC::front::RunProgress {
 public:
  void SetBothPosRange(int low, int high) override {
    RunProgress::SetBothPosRange(low, high);
    m_bar.SetBothPosRange(low, high);
  }
  void SetTitleMessage(const LUMA::LumaUnicodeString& title) override {
    RunProgress::SetTitleMessage(title);
    m_bar.SetTitleMessage(title);
  }
  void SetMessage(const LUMA::LumaUnicodeString& message) override {
    RunProgress::SetMessage(message);
    m_bar.SetMessage(message);
  }
  void SetProgressPos(int pos) override {
    RunProgress::SetProgressPos(pos);
    m_bar.SetProgressPos(pos);
  }

 protected:
  void OnChange(const ZOC::ZoProgressState&) override {}  // the bar draws itself

 private:
  ZOC::ZoTerminalProgress m_bar;
};

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
    ZOC::front::InstallProgressFactory([] { return std::make_unique<TerminalProgress>(); });
    CatchStopSignals(command->name);
    return command->run(options);
  } catch (const zostat::UsageError& e) {
    std::fprintf(stderr, "zostat %s: %s\n\n", command->name.c_str(),
                 WithIdentifier(e.what(), ZOC::msg::EUa050).c_str());
    PrintCommandUsage(*command, stderr);
    return 2;
  } catch (const zostat::Failure& e) {
    std::fprintf(stderr, "zostat %s: %s\n", command->name.c_str(), WithIdentifier(e.what(), ZOC::msg::EUa019).c_str());
    // A run stopped by a signal says so, also where the library reports the
    // stop as a failure of its own (the central feature's search ends with
    // "ESa016", as the measure must).
    if (g_stopSignals.load() > 0 && std::strstr(e.what(), ZOC::msg::IMb030) == nullptr)
      std::fprintf(stderr, "zostat %s: %s\n", command->name.c_str(), zostat::MessageText(ZOC::msg::IMb030, "").c_str());
    g_failureReported.store(true);
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
