#pragma once
// ZoEngineToolkit: result-field creation.
#include "host/HostExport.h"
#include "host/LumaFieldInfo.h"

namespace ZOC {

using LUMA::LumaFieldInfos;

class ZoDatasetVector;

class SA_HOST_API ZoEngineToolkit {
 public:
  // Creates the fields on `target`, first making each name valid for the
  // target's format (characters the format cannot hold become '_', names are
  // cut to the format's limit, e.g. 10 bytes for Shapefile) and unique,
  // case-insensitively, against the existing fields and each other (a
  // numeric suffix is added). The final names are written back into
  // `fields`. System fields in the list are created as ordinary fields.
  static bool CreateValidFields(ZoDatasetVector* target, LumaFieldInfos& fields);
};

}  // namespace ZOC
