#include "host/detail/GdalSession.h"

#include <mutex>
#include <string>

#include <cpl_conv.h>
#include <cpl_string.h>

namespace ZOC::detail {

void EnsureGdal() {
  static std::once_flag once;
  std::call_once(once, [] {
    // GDAL builds a new GeoPackage layer's spatial index on a background
    // thread with a second SQLite connection; while another layer of the
    // same file is written that thread's commits fail with "database is
    // locked". Build the index on the writer's own connection instead,
    // unless the user has chosen otherwise.
    if (!CPLGetConfigOption("OGR_GPKG_ALLOW_THREADED_RTREE", nullptr))
      CPLSetConfigOption("OGR_GPKG_ALLOW_THREADED_RTREE", "NO");
    GDALAllRegister();
  });
}

QuietErrors::QuietErrors() {
  CPLPushErrorHandlerEx(&QuietErrors::Handler, this);
  CPLErrorReset();
}

QuietErrors::~QuietErrors() { CPLPopErrorHandler(); }

void CPL_STDCALL QuietErrors::Handler(CPLErr type, CPLErrorNum, const char* text) {
  auto* self = static_cast<QuietErrors*>(CPLGetErrorHandlerUserData());
  if (!self || (type != CE_Failure && type != CE_Fatal)) return;
  self->m_failed = true;
  // The first failure usually names the cause; later ones report its effects.
  if (self->m_first.empty() && text) {
    try {
      self->m_first = text;
    } catch (...) {
    }
  }
}

bool QuietErrors::Failed() const {
  const CPLErr e = CPLGetLastErrorType();
  return m_failed || e == CE_Failure || e == CE_Fatal;
}

std::string QuietErrors::Message() const {
  if (!m_first.empty()) return m_first;
  const char* msg = CPLGetLastErrorMsg();
  return msg ? msg : "";
}

GDALDriver* VectorDriverForExtension(const std::string& extension, bool creatable) {
  if (extension.empty()) return nullptr;
  GDALDriverManager* manager = GetGDALDriverManager();
  for (int i = 0; i < manager->GetDriverCount(); ++i) {
    GDALDriver* driver = manager->GetDriver(i);
    if (!CPLFetchBool(driver->GetMetadata(), GDAL_DCAP_VECTOR, false)) continue;
    if (creatable && !CPLFetchBool(driver->GetMetadata(), GDAL_DCAP_CREATE, false)) continue;
    const char* list = driver->GetMetadataItem(GDAL_DMD_EXTENSIONS);
    if (!list) list = driver->GetMetadataItem(GDAL_DMD_EXTENSION);
    if (!list) continue;
    const CPLStringList extensions(CSLTokenizeString2(list, " ", 0));
    for (int k = 0; k < extensions.size(); ++k)
      if (EQUAL(extensions[k], extension.c_str())) return driver;
  }
  return nullptr;
}

}  // namespace ZOC::detail
