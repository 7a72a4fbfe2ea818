#pragma once
// ZoProgress: the host's progress and cancellation interface, with a terminal
// implementation (a bar on stderr) and a callback implementation through which
// an embedding program watches progress and cancels.
//
// Positions: SetBothPosRange(low, high) names the slice of the whole run that
// the next stage covers, in percent; SetProgressPos(p) with p in 0..100 then
// moves within that slice. The overall percentage is low + p·(high − low)/100.
#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "host/HostExport.h"
#include "host/LumaUnicodeString.h"

namespace ZOC {

using LUMA::LumaUnicodeString;

class SA_HOST_API ZoProgress {
 public:
  virtual ~ZoProgress() = default;
  virtual void SetBothPosRange(int low, int high) = 0;
  virtual void SetTitleMessage(const LumaUnicodeString& title) = 0;
  virtual void SetMessage(const LumaUnicodeString& message) = 0;
  virtual void SetProgressPos(int pos) = 0;
  // Polled by long runs; once true it stays true for this object.
  virtual bool IsCanceled() = 0;

  // The progress object an analysis creates when it is asked to show
  // progress. By default a ZoTerminalProgress; an embedding program installs
  // its own factory once, before running analyses.
  using Factory = std::function<std::unique_ptr<ZoProgress>()>;
  static std::unique_ptr<ZoProgress> Create();
  static void SetFactory(Factory factory);  // an empty factory restores the default
};

// What a progress implementation sees after every change.
struct ZoProgressState {
  double percent = 0.0;  // 0..100 over the whole run
  std::string title;
  std::string message;
};

// Shared position arithmetic; subclasses only present the state.
class SA_HOST_API ZoProgressBase : public ZoProgress {
 public:
  void SetBothPosRange(int low, int high) override;
  void SetTitleMessage(const LumaUnicodeString& title) override;
  void SetMessage(const LumaUnicodeString& message) override;
  void SetProgressPos(int pos) override;
  bool IsCanceled() override;
  void Cancel() { m_canceled = true; }
  const ZoProgressState& State() const { return m_state; }

 protected:
  virtual void OnChange(const ZoProgressState& state) = 0;
  // Asked on every poll; return true to cancel.
  virtual bool PollCancel() { return false; }

 private:
  ZoProgressState m_state;
  int m_low = 0, m_high = 100;
  bool m_canceled = false;
};

// A bar on stderr, drawn only when stderr is a terminal and redrawn at most a
// few times per second. Cancellation comes from RequestCancel, which is safe to
// call from a signal handler (zostat calls it on Ctrl-C).
class SA_HOST_API ZoTerminalProgress : public ZoProgressBase {
 public:
  ZoTerminalProgress();
  ~ZoTerminalProgress() override;
  static void RequestCancel() noexcept;
  static void ResetCancel() noexcept;
  // Turns drawing off for every terminal progress object (zostat --quiet).
  static void SetQuiet(bool quiet) noexcept;

 protected:
  void OnChange(const ZoProgressState& state) override;
  bool PollCancel() override;

 private:
  bool m_draw;
  bool m_drawn = false;
  long long m_lastDrawNs = 0;
  int m_lastTenths = -1;
};

// Forwards every change to a function; the function returns false to cancel.
class SA_HOST_API ZoCallbackProgress : public ZoProgressBase {
 public:
  using Callback = std::function<bool(const ZoProgressState&)>;
  explicit ZoCallbackProgress(Callback callback) : m_callback(std::move(callback)) {}

 protected:
  void OnChange(const ZoProgressState& state) override;
  bool PollCancel() override;

 private:
  Callback m_callback;
};

}  // namespace ZOC
