#pragma once
// Host-internal state shared by datasources, datasets and recordsets. Not installed.
//
// One OGR layer has one read cursor, but several recordsets may read the
// same layer at once and writes may go to it while they read. The layer's
// state therefore records which recordset currently owns the cursor (and
// the attribute filter it applied). A recordset reads with GetNextFeature
// only while it owns the cursor and only while the feature the cursor gives
// is the one it expects; otherwise it reads by feature ID. That check also
// covers writes that moved or reset the cursor.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include "host/ZoDatasetVector.h"
#include "host/ZoPrjCoordSys.h"
#include "host/ZoRecordset.h"

namespace ZOC::detail {

// Batches writes into datasource transactions for drivers that have them:
// a transaction starts lazily on the first write and is committed on
// request, every kBatchSize writes, on recordset release and on close.
class WriteBatch {
 public:
  static constexpr std::int64_t kBatchSize = 100000;

  explicit WriteBatch(GDALDataset* ds);
  void BeforeWrite();
  void AfterWrite();
  bool Commit();

 private:
  GDALDataset* m_ds;
  bool m_canTransact = false;
  bool m_active = false;
  std::int64_t m_pending = 0;
};

// Implemented by recordsets so that a dataset going away can cut them loose.
class RecordsetLink {
 public:
  virtual void Detach() = 0;

 protected:
  ~RecordsetLink() = default;
};

inline constexpr int kFieldSystemId = -1;
inline constexpr int kFieldUnknown = -2;

struct LayerState {
  OGRLayer* layer = nullptr;
  GDALDataset* gdal = nullptr;
  WriteBatch* batch = nullptr;
  const void* cursorOwner = nullptr;  // who last positioned the read cursor
  std::string appliedFilter;          // the attribute filter set on the layer
  std::vector<int> hostTypes;         // host type code of each OGR field
  std::vector<RecordsetLink*> live;
  // Rows appended through SQLite (detail::GpkgAppend) since GDAL opened the
  // layer: GDAL's own feature count has not seen them.
  std::int64_t rowsBesideGdal = 0;
  // Appended records keep their source's QlID (ZoDatasetVector::KeepSourceIds).
  bool keepSourceIds = false;

  // Sets the attribute filter when it differs from the one applied (which
  // loses the cursor); false when OGR rejects it (the layer is then unfiltered).
  bool ApplyFilter(const std::string& filter);
  // kFieldSystemId for "QlID", kFieldUnknown when absent, else the OGR field index.
  int FindField(std::string_view name);
  int HostType(int field);
  void RefreshFieldTypes();
  bool HasGeometry() const;
};

// The GDAL objects behind the host types, for host code only (the public
// headers name no GDAL type).
struct HostAccess {
  static GDALDataset* Gdal(const ZoDataSource& source);
  static OGRLayer* Layer(const ZoDatasetVector& dataset);
  // A datasource that owns an opened GDAL dataset, listing none of its
  // layers until they are adopted.
  static std::unique_ptr<ZoDataSource> Wrap(GDALDataset* gdal, const std::string& path);
  // The dataset of a layer of `source`, listed from now on.
  static ZoDatasetVector* Adopt(ZoDataSource& source, OGRLayer* layer);
  // Hands `dataset` (the same object, so callers' pointers stay valid) from
  // `from` to `to`, over `to`'s `layer`; null `layer` parks it, closed,
  // while its file is out of GDAL's hands. Recordsets open on it lose it.
  static bool Move(ZoDataSource& from, ZoDatasetVector* dataset, ZoDataSource& to, OGRLayer* layer);
};

}  // namespace ZOC::detail

namespace ZOC {

struct ZoDatasetVector::Impl {
  ZoDataSource* owner = nullptr;
  detail::LayerState state;
  ZoPrjCoordSys cs;
};

struct ZoRecordset::Impl final : detail::RecordsetLink {
  enum class Mode { None, Add, Edit };

  ZoDatasetVector* dataset = nullptr;
  detail::LayerState* state = nullptr;                     // null once the dataset is gone
  std::string filter;                                      // the OGR attribute filter of the query
  std::vector<GIntBig> fids;                               // the records, in the query's order
  bool natural = false;                                    // fids are the layer's own sequence under `filter`
  bool ascending = false;                                  // fids strictly increase (SeekID by bisection)
  std::vector<std::pair<GIntBig, std::size_t>> seekIndex;  // built on demand otherwise
  std::size_t pos = 0;
  bool sequential = false;  // reading with GetNextFeature
  OGRFeatureUniquePtr current;
  Mode mode = Mode::None;
  OGRFeatureUniquePtr pending;

  void Detach() override;
  // Loads the record at `pos` (sequentially when still possible); false at the end.
  bool Load();
  void DropPending() {
    pending.reset();
    mode = Mode::None;
  }
};

}  // namespace ZOC
