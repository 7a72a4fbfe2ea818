#pragma once
// Host-internal glue between GDAL/OGR and the host types: geometry
// conversion and the mapping of OGR field types to host field type codes.
// Not installed.
#include <memory>

#include <gdal_priv.h>
#include <ogr_feature.h>
#include <ogr_geometry.h>
#include <ogrsf_frmts.h>

#include "host/LumaFieldInfo.h"
#include "host/LumaVariant.h"
#include "host/ZoGeometry.h"

namespace ZOC::detail {

// Dataset type code (0, 1, 3, 5) of a layer geometry type.
int DatasetTypeFromOGR(OGRwkbGeometryType type);
// The layer geometry type a new dataset of a host type code is created with;
// wkbUnknown for codes that are not dataset types.
OGRwkbGeometryType OGRTypeForDataset(int datasetType);

// OGR geometry -> host geometry (2-D, curves linearised). Null and empty
// geometries, and kinds the host has no counterpart for, give an empty geometry.
ZoGeometry GeometryFromOGR(const OGRGeometry* geometry);
// Host geometry -> OGR geometry shaped for a layer of `layerType` (single
// parts promoted to the layer's multi type and back). Null for an empty or
// malformed geometry.
std::unique_ptr<OGRGeometry> GeometryToOGR(const ZoGeometry& geometry, OGRwkbGeometryType layerType);

// A copy of `geometry` for a layer of `layerType`: as it is (multi parts, Z
// and M kept) unless the layer's kind differs, then converted to that kind
// (single parts promoted to multi and back), keeping its own dimensions.
// Null for a null input.
OGRGeometry* GeometryForLayer(const OGRGeometry& geometry, OGRwkbGeometryType layerType);

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
