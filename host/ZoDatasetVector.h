#pragma once
// ZoDatasetVector: one vector layer of a datasource.
//
// Dataset type codes: 0 tabular (no geometry), 1 point, 3 line, 5 region;
// multi-geometries map to their single kind (multipoint → 1, multilinestring
// → 3, multipolygon → 5) and curves to lines or regions. Geometry kinds the
// library cannot use (collections, unknown) report 0.
//
// Fields: the system identifier "QlID" (the feature ID, 32-bit integer code
// 4, IsSystemField) comes first, then the layer's attribute fields with host
// type codes: 1 boolean, 2 byte, 3 int16, 4 int32, 6 single, 7 double,
// 10 text, 16 int64, 18 binary, 22 date-time, 23 date, 24 time, 127 other.
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "host/HostExport.h"
#include "host/LumaFieldInfo.h"
#include "host/LumaUnicodeString.h"
#include "host/LumaVariant.h"
#include "host/ZoPrjCoordSys.h"
#include "host/ZoQueryDef.h"

namespace ZOC {

namespace detail {
struct HostAccess;
}

using LUMA::LumaFieldInfo;
using LUMA::LumaFieldInfos;

class ZoDataSource;
class ZoProgress;
class ZoRecordset;

enum ZoDatasetType : int { DatasetTabular = 0, DatasetPoint = 1, DatasetLine = 3, DatasetRegion = 5 };

// The name of the system identifier field.
inline constexpr const char* kSystemIdField = "QlID";

class SA_HOST_API ZoDatasetVector {
 public:
  ~ZoDatasetVector();
  ZoDatasetVector(const ZoDatasetVector&) = delete;
  ZoDatasetVector& operator=(const ZoDatasetVector&) = delete;

  // Datasets are open as long as their datasource is; Open reports that.
  bool IsOpen() const;
  bool Open();

  LumaUnicodeString GetName() const;
  int GetType() const;
  std::int64_t GetRecordCount() const;
  ZoDataSource* GetDataSource() const;

  // Field lookup by name, case-insensitive as in SQL; "QlID" included.
  bool GetFieldInfo(const LumaUnicodeString& name, LumaFieldInfo& info) const;
  LumaFieldInfos GetFieldInfos() const;
  // Adds an attribute field (the name is used as given; see
  // ZoEngineToolkit::CreateValidFields for making names valid first).
  bool CreateField(const LumaFieldInfo& info);

  const ZoPrjCoordSys& GetPrjCoordSys() const;
  // Allowed while the dataset has no records (the system is written into the
  // file's metadata only for formats that support changing it).
  bool SetPrjCoordSys(const ZoPrjCoordSys& cs);

  // A recordset over the query's records in its order, or null when the
  // filter, a field or the order clause is invalid. Release it with
  // ReleaseRecordset (or delete it) before the datasource closes.
  ZoRecordset* Query(const ZoQueryDef& query);
  void ReleaseRecordset(ZoRecordset* recordset);

  // Appends a copy of every record of `source` in its order: its geometry (as
  // stored, converted only where this dataset's geometry kind differs),
  // and for each (source field, target field) pair of the mapping the value.
  // The source field may be "QlID". Reports per-record progress when a
  // progress object is given and stops with false when it is cancelled.
  bool AppendRecords(ZoRecordset* source, const std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>>& fieldMap,
                     ZoProgress* progress = nullptr);
  // The same, and each new record also gets values for `extraFields`:
  // fill(k, values) is called for the k-th record (0-based, in the source's
  // order) with one value per extra field to set; returning false stops the
  // append with false. Writing results while appending stores every record
  // once, which is far cheaper than updating it afterwards.
  using ExtraValues = std::function<bool(std::int64_t, std::vector<LUMA::LumaVariant>&)>;
  bool AppendRecords(ZoRecordset* source, const std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>>& fieldMap,
                     ZoProgress* progress, const std::vector<LumaUnicodeString>& extraFields, const ExtraValues& fill);

  // With true, records appended afterwards keep their source record's QlID
  // as their own (the source's QlIDs must not be taken in this dataset),
  // so that the parts of a dataset analysed apart can be put back together.
  void KeepSourceIds(bool keep);

  // Makes pending writes durable (writes are batched in transactions).
  bool Commit();

 private:
  friend class ZoDataSource;
  friend struct detail::HostAccess;
  friend class ZoRecordset;
  struct Impl;
  explicit ZoDatasetVector(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> m_impl;
};

}  // namespace ZOC
