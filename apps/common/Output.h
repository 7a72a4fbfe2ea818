#pragma once
// The result layer of a run, written the same way by every front end: the
// output is checked before any work (its format from the extension, none of
// the files the run reads, an existing layer only when overwriting), the
// analysis writes into dataset(), and Commit puts the finished result in
// place of the old layer or file only once it is complete. Without a
// successful Commit the output is never touched.
#include <memory>
#include <string>
#include <vector>

#include "common/Input.h"
#include "host/ZoPrjCoordSys.h"

namespace ZOC {
class ZoDatasetVector;
class ZoProgress;
class ZoResultWriter;
}  // namespace ZOC

namespace ZOC::front {

class Output {
 public:
  // `reads`: the files the run reads besides `input`'s (a weights file);
  // empty names are skipped. Throws UsageError for an empty layer name
  // ("EUa055") and for a path whose extension no driver writes ("EUa012",
  // "EUa013"); Failure for the rest (an existing output without overwriting
  // "EUa010", the input itself "EUa011", ...).
  Output(const std::string& path, const std::string& layer, bool overwrite, const InputLayer* input,
         const std::vector<std::string>& reads);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // The result dataset, shaped like `like` (geometry kind and coordinate
  // system as read), or of `datasetType` in `cs` when `like` is null.
  // Throws Failure when the output's format cannot hold it ("EUa017").
  ZOC::ZoDatasetVector* Create(const ZOC::ZoDatasetVector* like, int datasetType, const ZOC::ZoPrjCoordSys& cs);
  ZOC::ZoDatasetVector* dataset() const { return m_dataset; }

  const std::string& path() const { return m_path; }
  // The layer's name as the output stores it (after Commit, a Shapefile's is
  // its file name).
  const std::string& layer() const { return m_layer; }

  // The analysis succeeded: writes the result, polling `progress` (may be
  // null) for a stop ("IMb030"). TryCommit returns false with the message
  // in error(); Commit throws it as a Failure.
  bool TryCommit(ZOC::ZoProgress* progress);
  void Commit(ZOC::ZoProgress* progress);
  std::string error() const;

 private:
  std::string m_path, m_layer;
  std::unique_ptr<ZOC::ZoResultWriter> m_writer;
  ZOC::ZoDatasetVector* m_dataset = nullptr;
};

}  // namespace ZOC::front
