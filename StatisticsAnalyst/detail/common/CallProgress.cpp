#include "StatisticsAnalyst/detail/common/CallProgress.h"

#include "host/ZoStringEx.h"

namespace ZOC::detail {

CallProgress::CallProgress(ZoProgress* callerProgress, bool show) {
  if (!show) return;
  if (callerProgress) {
    m_progress = callerProgress;
  } else {
    m_owned = ZoProgress::Create();
    m_progress = m_owned.get();
  }
}

bool CallProgress::Step(const LUMA::LumaUnicodeString& format, long long i, long long n) {
  if (!m_progress) return true;
  // Formatting the message costs more than a feature's statistic: it is
  // shown when the position moves, at the first and the last step, and
  // cancellation is polled at least every 1024 steps.
  const int pos = n > 0 ? static_cast<int>((100 * (i + 1)) / n) : 100;
  const bool show = pos != m_shownPos || i == 0 || i + 1 >= n;
  if (!show) return (i & 1023) != 0 || !m_progress->IsCanceled();
  m_shownPos = pos;
  m_progress->SetMessage(ZoStringEx::Format(format, i + 1, n));
  m_progress->SetProgressPos(pos);
  return !m_progress->IsCanceled();
}

}  // namespace ZOC::detail
