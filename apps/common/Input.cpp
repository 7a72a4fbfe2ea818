#include "common/Input.h"

#include <unistd.h>

#include <filesystem>

#include "common/Errors.h"
#include "host/ZoMessageIds.h"

namespace ZOC::front {

namespace {

// Why GDAL could not open a path, as an identifier: each of these needs a
// different remedy.
const char* WhyCannotOpen(const std::string& path) {
  std::error_code ec;
  const std::filesystem::file_status status = std::filesystem::status(path, ec);
  if (!std::filesystem::exists(status)) {
    // GDAL also opens names that are not files (/vsizip/..., PG:...).
    const bool virtualName = path.rfind("/vsi", 0) == 0 || path.find(':') != std::string::npos;
    return virtualName ? msg::EUa004 : msg::EUa001;
  }
  if (std::filesystem::is_directory(status)) return msg::EUa002;
  if (::access(path.c_str(), R_OK) != 0) return msg::EUa005;
  if (std::filesystem::is_regular_file(status) && std::filesystem::file_size(path, ec) == 0 && !ec) return msg::EUa003;
  return msg::EUa004;
}

std::string LayerNames(ZOC::ZoDataSource& source) {
  std::string names;
  for (int i = 0; i < source.GetDatasetCount(); ++i) names += (i ? ", " : "") + source.GetDataset(i)->GetName().Str();
  return names;
}

}  // namespace

InputLayer OpenInput(const std::string& path, const std::string& layer) {
  InputLayer input;
  LUMA::LumaUnicodeString error;
  input.source = ZOC::ZoDataSource::Open(path, false, &error);
  if (!input.source) throw Failure(MessageText(WhyCannotOpen(path), "'" + path + "': " + error.Str()));
  if (!layer.empty()) {
    input.dataset = input.source->GetDataset(layer);
    if (!input.dataset)
      throw Failure(MessageText(
          msg::EUa006, "'" + path + "' has no layer '" + layer + "'; its layers: " + LayerNames(*input.source)));
  } else {
    if (input.source->GetDatasetCount() < 1) throw Failure(MessageText(msg::EUa007, "'" + path + "'"));
    input.dataset = input.source->GetDataset(0);
  }
  return input;
}

}  // namespace ZOC::front
