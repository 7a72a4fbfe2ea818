#pragma once
// A recordset released through its dataset when it goes out of scope.
#include <memory>

#include "StatisticsAnalyst/Export.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoRecordset.h"

namespace ZOC {

struct SA_API ZoRecordsetRelease {
  void operator()(ZoRecordset* records) const;
};
using ZoRecordsetPtr = std::unique_ptr<ZoRecordset, ZoRecordsetRelease>;

}  // namespace ZOC
