#pragma once
// ZoResultWriter: writes a result layer into an output file so that what the
// file held is replaced only once the whole result has arrived.
//
//   Prepare       before any work: the driver comes from the path's extension
//                 through GDAL; an output that is one of the protected files
//                 (the input's) is refused, and so is an existing layer (or
//                 an existing single-layer file) unless overwriting is allowed.
//   CreateResult  the dataset the analysis writes into. It lives on disk,
//                 never whole in memory: a GeoPackage or SQLite result is
//                 written straight into a temporary layer of the existing
//                 output file, or into a new file in a hidden scratch folder
//                 beside the target; any other format is staged in a scratch
//                 GeoPackage there.
//   Commit        after the analysis succeeded: a GeoPackage layer gets its
//                 spatial index, a staged result is copied into its format,
//                 the result is read back to check that it holds every
//                 feature, field and geometry, and only then put in place of
//                 the old layer or file. (SQLite cannot rename layers, so an
//                 existing SQLite file is replaced by an edited copy.) The result dataset is closed.
// Until Commit nothing replaces the output; a failed or cancelled Commit,
// or a writer destroyed without one, leaves it as it was, with no temporary
// layer or file behind. Failures leave a message beginning with its
// identifier in GetError().
#include <memory>
#include <vector>
#include "host/HostExport.h"
#include "host/LumaUnicodeString.h"
#include "host/ZoPrjCoordSys.h"

namespace ZOC {

class ZoDatasetVector;
class ZoProgress;

class SA_HOST_API ZoResultWriter {
 public:
  ZoResultWriter();
  ~ZoResultWriter();
  ZoResultWriter(const ZoResultWriter&) = delete;
  ZoResultWriter& operator=(const ZoResultWriter&) = delete;

  // `protectedFiles` are files the output must not be (compared as files, so
  // a link or another spelling of the same path is caught).
  bool Prepare(const LumaUnicodeString& path, const LumaUnicodeString& layer, bool overwrite,
               const std::vector<LumaUnicodeString>& protectedFiles);
  // After a failed Prepare: true when the path alone was at fault (an
  // extension no driver writes), which a command line reports as misuse.
  bool IsUsageError() const;

  // The result dataset: shaped like `like` (its geometry kind with multi
  // parts, Z and M, and its coordinate system as read) when given, else of
  // `datasetType` in `cs`. Owned by the writer, valid until Commit. For a
  // format other than GeoPackage and SQLite, one feature of that shape is
  // first written to a scratch file of the output's format and read back, so
  // a format that cannot hold the result is refused ("EUa017") before the
  // analysis runs; null then.
  ZoDatasetVector* CreateResult(const ZoDatasetVector* like, int datasetType, const ZoPrjCoordSys& cs);

  // Puts the result in place of the output; polls `progress` (may be null)
  // for cancellation ("IMb030").
  bool Commit(ZoProgress* progress);

  LumaUnicodeString GetError() const;
  LumaUnicodeString GetPath() const;
  // The result layer as the output names it (a Shapefile's is its file name).
  LumaUnicodeString GetLayerName() const;
  // Features written by the last successful Commit.
  long long GetWrittenCount() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace ZOC
