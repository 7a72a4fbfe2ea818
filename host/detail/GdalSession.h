#pragma once
// Host-internal: GDAL's process-wide state as the host uses it: driver
// registration, finding a vector driver by file extension, and capturing
// GDAL's errors instead of letting them reach stderr. Not installed.
#include <string>

#include <cpl_error.h>
#include <gdal_priv.h>

namespace ZOC::detail {

// Registers GDAL's drivers once per process; safe to call from any thread.
void EnsureGdal();

// Routes GDAL's errors and warnings away from stderr for the lifetime of the
// object (a library must not print) and remembers whether a failure was
// raised meanwhile, with the text of the first one.
class QuietErrors {
 public:
  QuietErrors();
  ~QuietErrors();
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;
  bool Failed() const;
  // The first failure's text, else GDAL's last message ("" when none).
  std::string Message() const;

 private:
  static void CPL_STDCALL Handler(CPLErr type, CPLErrorNum number, const char* text);
  std::string m_first;
  bool m_failed = false;
};

// The first registered GDAL driver that lists `extension` (lower case, no
// dot) among its vector file extensions and, when `creatable`, can create
// files; null when none does.
GDALDriver* VectorDriverForExtension(const std::string& extension, bool creatable);

}  // namespace ZOC::detail
