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
#include <string>
#include <vector>

#include "host/HostExport.h"
#include "host/LumaPoint.h"
#include "host/LumaUnicodeString.h"
#include "host/LumaVariant.h"
#include "host/ZoGeometry.h"

namespace ZOC {

using LUMA::LumaUnicodeString;
using LUMA::LumaVariant;

class ZoDatasetVector;

class SA_HOST_API ZoRecordset {
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

  // The QlID of the k-th record (0-based, in this recordset's order), or -1.
  std::int64_t GetIDAt(std::int64_t k) const;

  // Every record's values of numeric fields and, with `points`, its point,
  // read column-wise in one pass over the layer (far cheaper than a record
  // at a time). A null value reads as 0, as a null variant converts, and
  // is marked in `nulls`;
  // `hasPoint` is 0 where a record has no geometry or an empty one. False,
  // with the recordset unchanged, when the records cannot be read this way:
  // an order other than the layer's own, a field that is not a plain
  // number, a geometry other than a point, or a layer that no longer holds
  // the records the query found. Then read record by record.
  struct Columns {
    std::vector<std::vector<double>> values;       // per field, per record
    std::vector<std::vector<std::uint8_t>> nulls;  // per field, per record: 1 where null
    std::vector<LUMA::LumaPoint2D> points;
    std::vector<std::uint8_t> hasPoint;
  };
  bool ReadColumns(const std::vector<LumaUnicodeString>& fields, bool points, Columns& columns);
  // Every record's value of a text field the same way ("" where null, marked
  // in `nulls`); false, with the recordset unchanged, when the field is not
  // plain text or the records cannot be read this way.
  bool ReadTextColumn(const LumaUnicodeString& field, std::vector<std::string>& values,
                      std::vector<std::uint8_t>& nulls);

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
