#pragma once
// The progress object of one call that asks to show progress: the caller's
// object when there is one, else a new one from the host's factory, deleted
// when the call returns. A call that does not ask reports nothing.
#include <memory>

#include "host/LumaUnicodeString.h"
#include "host/ZoProgress.h"

namespace ZOC::detail {

class CallProgress {
 public:
  CallProgress(ZoProgress* callerProgress, bool show);
  ZoProgress* get() const { return m_progress; }
  explicit operator bool() const { return m_progress != nullptr; }
  ZoProgress* operator->() const { return m_progress; }
  // Formats "%1 of %2" style messages, sets position 100·(i+1)/n and polls
  // for cancellation (the message and position only when the position
  // moves). Returns false when the user cancelled.
  bool Step(const LUMA::LumaUnicodeString& format, long long i, long long n);

 private:
  std::unique_ptr<ZoProgress> m_owned;
  ZoProgress* m_progress = nullptr;
  int m_shownPos = -1;
};

}  // namespace ZOC::detail
