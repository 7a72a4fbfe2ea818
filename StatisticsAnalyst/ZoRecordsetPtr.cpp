#include "StatisticsAnalyst/ZoRecordsetPtr.h"

namespace ZOC {

void ZoRecordsetRelease::operator()(ZoRecordset* records) const {
  if (!records) return;
  if (ZoDatasetVector* dataset = records->GetDataset())
    dataset->ReleaseRecordset(records);
  else
    delete records;
}

}  // namespace ZOC
