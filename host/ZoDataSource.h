#pragma once
// ZoDataSource: a datasource GDAL/OGR can read or write (GeoPackage,
// Shapefile, GeoJSON, FlatGeobuf, or GDAL's in-memory driver). It owns its
// datasets.
#include <memory>
#include <vector>

#include "host/HostExport.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoDatasetVector.h"

namespace ZOC {

namespace detail {
struct HostAccess;
}

class SA_HOST_API ZoDataSource {
 public:
  ~ZoDataSource();  // commits pending writes and closes
  ZoDataSource(const ZoDataSource&) = delete;
  ZoDataSource& operator=(const ZoDataSource&) = delete;

  // Opens an existing datasource; null with a reason in *error on failure.
  static std::unique_ptr<ZoDataSource> Open(const LumaUnicodeString& path, bool update,
                                            LumaUnicodeString* error = nullptr);
  // Opens the datasource at path for update, or creates it when it does not
  // exist, with the driver DriverForPath names; fails when it names none.
  static std::unique_ptr<ZoDataSource> OpenOrCreate(const LumaUnicodeString& path, LumaUnicodeString* error = nullptr);
  // A new datasource in GDAL's in-memory driver.
  static std::unique_ptr<ZoDataSource> CreateMemory(const LumaUnicodeString& name = "memory");
  // The driver a path would be created with ("GPKG", "ESRI Shapefile", ...):
  // the first of GDAL's drivers that lists the path's extension and can
  // create vector files; "" when there is none.
  static LumaUnicodeString DriverForPath(const LumaUnicodeString& path);

  LumaUnicodeString GetPath() const;
  LumaUnicodeString GetDriverName() const;
  // Every file the datasource consists of (a Shapefile's .shp, .shx, .dbf...);
  // empty for the in-memory driver.
  std::vector<LumaUnicodeString> GetFileList() const;
  int GetDatasetCount() const;
  ZoDatasetVector* GetDataset(int index);
  // By name, case-insensitive; null when absent.
  ZoDatasetVector* GetDataset(const LumaUnicodeString& name);

  // Creates an empty vector dataset. An existing dataset of that name is
  // replaced when `overwrite` is set, else the call fails.
  ZoDatasetVector* CreateDatasetVector(const LumaUnicodeString& name, int datasetType, const ZoPrjCoordSys& cs,
                                       bool overwrite = false, LumaUnicodeString* error = nullptr);
  // The same, shaped like `like`: its geometry kind exactly as stored (multi
  // parts, Z and M kept) and its coordinate system definition as read.
  ZoDatasetVector* CreateDatasetVector(const LumaUnicodeString& name, const ZoDatasetVector& like,
                                       bool overwrite = false, LumaUnicodeString* error = nullptr);
  bool DeleteDataset(const LumaUnicodeString& name);

 private:
  friend struct detail::HostAccess;
  struct Impl;
  explicit ZoDataSource(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> m_impl;
};

}  // namespace ZOC
