#include "StatisticsAnalyst/detail/weights/RowWriter.h"

#include "host/ZoStringEx.h"

namespace ZOC::detail::weights {

BuildProgress::BuildProgress(ZoProgress* caller, bool show, bool fullRange) : m_call(caller, show) {
  if (!m_call) return;
  if (fullRange) m_call->SetBothPosRange(0, 100);
  m_call->SetTitleMessage(ZoStringEx::LoadResString(msg::IMb330));
  m_format = ZoStringEx::LoadResString(msg::IMb331);
}

}  // namespace ZOC::detail::weights
