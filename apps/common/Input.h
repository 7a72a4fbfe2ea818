#pragma once
// Opening the input layer of a run, the same way for every front end.
#include <memory>
#include <string>

#include "host/ZoDataSource.h"
#include "host/ZoDatasetVector.h"

namespace ZOC::front {

struct InputLayer {
  std::unique_ptr<ZOC::ZoDataSource> source;
  ZOC::ZoDatasetVector* dataset = nullptr;
};

// The layer `layer` of the datasource at `path`, or its first layer when
// `layer` is empty. Throws Failure naming why: no such file ("EUa001"), a
// folder ("EUa002"), an empty file ("EUa003"), not a datasource GDAL reads
// ("EUa004"), not readable ("EUa005"), no such layer ("EUa006", with the
// layers there are), no layer at all ("EUa007").
InputLayer OpenInput(const std::string& path, const std::string& layer);

}  // namespace ZOC::front
