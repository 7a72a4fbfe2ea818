#pragma once
// The progress object of a front end's run, the same for zostat and the
// Python module.
//
// Analyses always run with a progress object, whether or not anything is
// shown (zostat --json or --quiet, Python's progress=False): it is how they
// learn that the user asked them to stop, and a stopped analysis removes its
// temporaries, leaves the output as it was and fails with "IMb030". A front
// end decides only how a change is shown and where else a stop comes from.
#include <functional>
#include <memory>

#include "host/ZoProgress.h"

namespace ZOC {
class ZoAnalysisFrame;
}

namespace ZOC::front {

// What a front end passes as an analysis's "show progress" argument.
inline constexpr bool kReportProgress = true;

// Asks every run of the process to stop. Safe to call from a signal handler.
void RequestStop() noexcept;
bool StopRequested() noexcept;

// A run's progress object: cancelled once RequestStop was called or the
// front end's Poll says so. Subclasses show the state (OnChange).
class RunProgress : public ZOC::ZoProgressBase {
 protected:
  bool PollCancel() final { return StopRequested() || Poll(); }
  // The front end's own source of a stop; true stops the run.
  virtual bool Poll() { return false; }
};

// While it lives, `progress` is the progress object of everything this
// thread runs: `analysis` (may be null) reports to it, and so does every
// progress object the host's factory makes meanwhile (what the analysis
// hands on, the commit of its output), so one object sees the whole run and
// one stop ends all of it. Needs InstallProgressFactory.
class ProgressScope {
 public:
  ProgressScope(ZOC::ZoProgress& progress, ZOC::ZoAnalysisFrame* analysis);
  ~ProgressScope();
  ProgressScope(const ProgressScope&) = delete;
  ProgressScope& operator=(const ProgressScope&) = delete;
  // The object of the innermost scope on this thread; null outside any.
  static ZOC::ZoProgress* Current();

 private:
  ZOC::ZoAnalysisFrame* m_analysis;
  ZOC::ZoProgress* m_outer;
};

// Installs the host's progress factory for a front end, once, before any
// run: inside a ProgressScope it hands out the scope's object, outside any
// it makes what `outside` makes.
void InstallProgressFactory(std::function<std::unique_ptr<ZOC::ZoProgress>()> outside);

}  // namespace ZOC::front
