#pragma once
// Host-internal: fields between OGR and the host: the host type code of an
// OGR field, the OGR field definition for a host field, and reading and
// writing values. Not installed.
#include <memory>

#include <gdal_priv.h>
#include <ogr_feature.h>

#include "host/LumaFieldInfo.h"
#include "host/LumaVariant.h"

namespace ZOC::detail {

// Host field type code of an OGR field. `dataset` resolves field domains and may be null.
int HostFieldType(const OGRFieldDefn& field, const GDALDataset* dataset);
// An OGR field definition for a host field, shaped for what the dataset's
// driver can store (see the .cpp for the representation of each code). May
// register a field domain on the dataset. Null for an unknown type code.
std::unique_ptr<OGRFieldDefn> MakeFieldDefn(const LUMA::LumaFieldInfo& info, GDALDataset* dataset);

// Reads field `index` of a feature as a host value of `hostType`.
void ReadFieldValue(const OGRFeature& feature, int index, int hostType, LUMA::LumaVariant& value);
// Writes a host value into field `index`, converting it to the field's type;
// false when the value cannot be represented (then the field is unchanged).
bool WriteFieldValue(OGRFeature& feature, int index, int hostType, const LUMA::LumaVariant& value);

// Comparable number of seconds for a calendar date and time (time zone ignored).
double DateTimeKey(int year, int month, int day, int hour, int minute, double second);

}  // namespace ZOC::detail
