#include "host/ZoProgress.h"

#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string_view>

namespace ZOC {

namespace {
std::mutex g_factoryMutex;
ZoProgress::Factory g_factory;

std::atomic<bool> g_terminalCancel{false};
std::atomic<bool> g_terminalQuiet{false};

long long NowNs() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}
}  // namespace

std::unique_ptr<ZoProgress> ZoProgress::Create() {
  Factory factory;
  {
    std::lock_guard<std::mutex> lock(g_factoryMutex);
    factory = g_factory;
  }
  if (factory) return factory();
  return std::make_unique<ZoTerminalProgress>();
}

void ZoProgress::SetFactory(Factory factory) {
  std::lock_guard<std::mutex> lock(g_factoryMutex);
  g_factory = std::move(factory);
}

// ---- ZoProgressBase ----

void ZoProgressBase::SetBothPosRange(int low, int high) {
  m_low = std::clamp(low, 0, 100);
  m_high = std::clamp(high, m_low, 100);
  m_state.percent = m_low;
  OnChange(m_state);
}

void ZoProgressBase::SetTitleMessage(const LumaUnicodeString& title) {
  m_state.title = title.Str();
  OnChange(m_state);
}

void ZoProgressBase::SetMessage(const LumaUnicodeString& message) {
  m_state.message = message.Str();
  OnChange(m_state);
}

void ZoProgressBase::SetProgressPos(int pos) {
  const double p = std::clamp(pos, 0, 100);
  m_state.percent = m_low + p * (m_high - m_low) / 100.0;
  OnChange(m_state);
}

bool ZoProgressBase::IsCanceled() {
  if (!m_canceled && PollCancel()) m_canceled = true;
  return m_canceled;
}

// ---- ZoTerminalProgress ----

ZoTerminalProgress::ZoTerminalProgress() : m_draw(isatty(STDERR_FILENO) == 1) {}

ZoTerminalProgress::~ZoTerminalProgress() {
  if (m_drawn) std::fputs("\r\033[K", stderr);  // leave a clean line for the result
}

void ZoTerminalProgress::RequestCancel() noexcept { g_terminalCancel.store(true); }
void ZoTerminalProgress::ResetCancel() noexcept { g_terminalCancel.store(false); }
void ZoTerminalProgress::SetQuiet(bool quiet) noexcept { g_terminalQuiet.store(quiet); }

bool ZoTerminalProgress::PollCancel() { return g_terminalCancel.load(); }

void ZoTerminalProgress::OnChange(const ZoProgressState& state) {
  if (!m_draw || g_terminalQuiet.load()) return;
  // Redraw when the shown tenth of a percent changes, at most ten times a second.
  const int tenths = static_cast<int>(state.percent * 10.0);
  const long long now = NowNs();
  if (tenths == m_lastTenths && m_drawn) return;
  if (m_drawn && now - m_lastDrawNs < 100'000'000 && tenths < 1000) return;
  m_lastTenths = tenths;
  m_lastDrawNs = now;
  constexpr int kWidth = 30;
  const int filled = std::clamp(static_cast<int>(state.percent * kWidth / 100.0), 0, kWidth);
  std::string_view text = state.message.empty() ? state.title : state.message;
  // Catalogue texts begin with their identifier ("[IMb331] ..."); a progress
  // line reads better without it.
  if (const auto close = text.find("] ");
      !text.empty() && text[0] == '[' && close != std::string_view::npos && close < 10)
    text.remove_prefix(close + 2);
  std::fprintf(stderr, "\r\033[K[%.*s%*s] %5.1f%% %.*s", filled, "==============================", kWidth - filled, "",
               state.percent, static_cast<int>(std::min<std::size_t>(text.size(), 60)), text.data());
  std::fflush(stderr);
  m_drawn = true;
}

// ---- ZoCallbackProgress ----

void ZoCallbackProgress::OnChange(const ZoProgressState& state) {
  if (m_callback && !m_callback(state)) Cancel();
}

bool ZoCallbackProgress::PollCancel() { return m_callback && !m_callback(State()); }

}  // namespace ZOC
