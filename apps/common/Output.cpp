#include "common/Output.h"

#include "common/Errors.h"
#include "host/ZoMessageIds.h"
#include "host/ZoResultWriter.h"

namespace ZOC::front {

Output::Output(const std::string& path, const std::string& layer, bool overwrite, const InputLayer* input,
               const std::vector<std::string>& reads)
    : m_path(path), m_layer(layer) {
  if (m_layer.empty()) throw UsageError(msg::EUa055, "give --output-layer");
  std::vector<LUMA::LumaUnicodeString> protect;
  if (input && input->source) protect = input->source->GetFileList();
  for (const auto& file : reads)
    if (!file.empty()) protect.emplace_back(file);
  m_writer = std::make_unique<ZOC::ZoResultWriter>();
  if (!m_writer->Prepare(m_path, m_layer, overwrite, protect)) {
    // The writer's messages name their identifiers; an extension no driver
    // writes is the only one the path alone is at fault for.
    if (m_writer->IsUsageError()) throw UsageError(error());
    throw Failure(error());
  }
}

Output::~Output() = default;

ZOC::ZoDatasetVector* Output::Create(const ZOC::ZoDatasetVector* like, int datasetType, const ZOC::ZoPrjCoordSys& cs) {
  m_dataset = m_writer->CreateResult(like, datasetType, cs);
  if (!m_dataset) throw Failure(error());
  return m_dataset;
}

bool Output::TryCommit(ZOC::ZoProgress* progress) {
  if (!m_writer->Commit(progress)) return false;
  m_layer = m_writer->GetLayerName().Str();
  return true;
}

void Output::Commit(ZOC::ZoProgress* progress) {
  if (!TryCommit(progress)) throw Failure(error());
}

std::string Output::error() const { return m_writer->GetError().Str(); }

}  // namespace ZOC::front
