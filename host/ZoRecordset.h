#pragma once
// ZoRecordset: a cursor over the records a query selected, in its order.
//
// Reading: MoveFirst / MoveNext / IsEOF, GetID, GetFieldValue, GetGeometry.
// Writing (result datasets): AddNew starts a new record with a geometry,
// Edit starts changing the current record; SetFieldValue sets values of the
// pending record; Update writes it. A record appended with AddNew joins the
// end of this recordset's order.
#include <cstdint>
#include <memory>

#include "StatisticsAnalyst/Export.h"
#include "host/LumaUnicodeString.h"
#include "host/LumaVariant.h"
#include "host/ZoGeometry.h"

namespace ZOC {

using LUMA::LumaUnicodeString;
using LUMA::LumaVariant;

class ZoDatasetVector;

class SA_API ZoRecordset {
 public:
  ~ZoRecordset();
  ZoRecordset(const ZoRecordset&) = delete;
  ZoRecordset& operator=(const ZoRecordset&) = delete;

  ZoDatasetVector* GetDataset() const;
  std::int64_t GetRecordCount() const;

  bool MoveFirst();
  bool MoveNext();
  bool IsEOF() const;
  // Moves to the record with this QlID; false (and EOF) when it is not in the recordset.
  bool SeekID(std::int64_t id);
  // The QlID of the current record, or -1 at EOF.
  std::int64_t GetID() const;

  // False for an unknown field or at EOF. Null values give a null variant.
  bool GetFieldValue(const LumaUnicodeString& name, LumaVariant& value);
  // The current record's geometry (empty when it has none); false at EOF.
  bool GetGeometry(ZoGeometry& geometry);

  bool AddNew(const ZoGeometry& geometry);
  bool Edit();
  // Converts to the field's type; a null variant clears the value.
  bool SetFieldValue(const LumaUnicodeString& name, const LumaVariant& value);
  bool SetGeometry(const ZoGeometry& geometry);
  bool Update();
  void CancelUpdate();

 private:
  friend class ZoDatasetVector;
  struct Impl;
  explicit ZoRecordset(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> m_impl;
};

}  // namespace ZOC
