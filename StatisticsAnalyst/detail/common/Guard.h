#pragma once
// The one guard of private steps against escaping exceptions: running out of
// memory is "EUc010"; any other exception is `otherId` when the caller knows
// what it means (a reader: the file made the reading fail), else "EUc011"
// naming it. Public members have the same rule in ZoAnalysisFrame::Guard.
#include <exception>
#include <new>

#include "StatisticsAnalyst/detail/common/Status.h"
#include "host/ZoMessageIds.h"

namespace ZOC::detail {

template <class Body>
Status Guarded(Body&& body, const char* otherId = nullptr) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return Status::Fail(msg::EUc010);
  } catch (const std::exception& e) {
    return otherId ? Status::Fail(otherId) : Status::Fail(msg::EUc011, {LUMA::LumaUnicodeString(e.what())});
  } catch (...) {
    return otherId ? Status::Fail(otherId) : Status::Fail(msg::EUc011, {LUMA::LumaUnicodeString("")});
  }
}

}  // namespace ZOC::detail
