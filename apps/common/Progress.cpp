#include "common/Progress.h"

#include <atomic>

#include "StatisticsAnalyst/ZoAnalysisFrame.h"

namespace ZOC::front {

namespace {

std::atomic<bool> g_stop{false};
static_assert(std::atomic<bool>::is_always_lock_free, "RequestStop must be safe in a signal handler");

thread_local ZOC::ZoProgress* t_current = nullptr;

// What the factory hands out inside a scope: the analysis owns and deletes
// it, so it only forwards to the scope's object.
class Forwarder : public ZOC::ZoProgress {
 public:
  explicit Forwarder(ZOC::ZoProgress* target) : m_target(target) {}
  void SetBothPosRange(int low, int high) override { m_target->SetBothPosRange(low, high); }
  void SetTitleMessage(const LUMA::LumaUnicodeString& title) override { m_target->SetTitleMessage(title); }
  void SetMessage(const LUMA::LumaUnicodeString& message) override { m_target->SetMessage(message); }
  void SetProgressPos(int pos) override { m_target->SetProgressPos(pos); }
  bool IsCanceled() override { return m_target->IsCanceled(); }

 private:
  ZOC::ZoProgress* m_target;
};

}  // namespace

void RequestStop() noexcept { g_stop.store(true); }
bool StopRequested() noexcept { return g_stop.load(); }

ProgressScope::ProgressScope(ZOC::ZoProgress& progress, ZOC::ZoAnalysisFrame* analysis)
    : m_analysis(analysis), m_outer(t_current) {
  if (m_analysis) m_analysis->SetProgress(&progress);
  t_current = &progress;
}

ProgressScope::~ProgressScope() {
  if (m_analysis) m_analysis->SetProgress(nullptr);
  t_current = m_outer;
}

ZOC::ZoProgress* ProgressScope::Current() { return t_current; }

void InstallProgressFactory(std::function<std::unique_ptr<ZOC::ZoProgress>()> outside) {
  ZOC::ZoProgress::SetFactory([outside = std::move(outside)]() -> std::unique_ptr<ZOC::ZoProgress> {
    if (t_current) return std::make_unique<Forwarder>(t_current);
    return outside();
  });
}

}  // namespace ZOC::front
