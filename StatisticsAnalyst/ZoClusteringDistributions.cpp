#include "StatisticsAnalyst/ZoClusteringDistributions.h"

#include <cmath>
#include <new>

#include "StatisticsAnalyst/LocalStatistics.h"
#include "StatisticsAnalyst/detail/weights/WeightsFileRows.h"
#include "StatisticsAnalyst/ZoStatisticsUtilities.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoStringEx.h"
#include "host/ZoMessageIds.h"

namespace ZOC {

namespace {

constexpr std::int64_t kInMemoryLimit = 10000;

// A copy of a source field for the result; system fields get a fixed name.
LUMA::LumaFieldInfo CopyOf(ZoDatasetVector* source, const LumaUnicodeString& name, const char* systemName) {
  LUMA::LumaFieldInfo field;
  source->GetFieldInfo(name, field);
  if (field.IsSystemField()) {
    field.SetName(systemName);
    field.SetCaption(systemName);
    field.SetSystemField(false);
  }
  return field;
}

// The texts of one analysis' progress.
struct Texts {
  const char* title;
  const char* format;
};

}  // namespace

unsigned char ZoClusteringDistributions::HotSpotAnalyst(ZoDatasetVector* source, ZoDatasetVector* result,
                                                        const ZoPatternsInformation& info,
                                                        unsigned char showProgress) {
  return RunLocal(source, result, info, showProgress != 0, Kind::HotSpot);
}

unsigned char ZoClusteringDistributions::ClusterOutlier(ZoDatasetVector* source, ZoDatasetVector* result,
                                                        const ZoPatternsInformation& info,
                                                        unsigned char showProgress) {
  return RunLocal(source, result, info, showProgress != 0, Kind::ClusterOutlier);
}

unsigned char ZoClusteringDistributions::RunLocal(ZoDatasetVector* source, ZoDatasetVector* result,
                                                  const ZoPatternsInformation& info, bool showProgress, Kind kind) {
  ClearErrorMessage();
  const bool hotSpot = kind == Kind::HotSpot;
  const Texts texts = hotSpot ? Texts{msg::IMb336, msg::IMb337} : Texts{msg::IMb338, msg::IMb339};
  try {
    // ---- Checks, in their fixed order.
    if (!source) {
      AddErrorMessage(msg::EEg002);
      return 0;
    }
    if (!result) {
      AddErrorMessage(msg::EEg032);
      return 0;
    }
    if (!result->IsOpen()) result->Open();
    if (!CheckAnalysisDataset(source)) return 0;
    const int type = source->GetType();
    if (result->GetType() != type) {
      AddErrorMessage(msg::EEe017);
      return 0;
    }
    ZoRecordsetPtr records = QueryOrderedBy(source, kSystemIdField);
    if (!records) return 0;
    if (!CheckParameterValid(records.get(), info)) return 0;
    const LumaUnicodeString selfField = hotSpot ? info.SecondFieldName : LumaUnicodeString();
    if (hotSpot) {
      ZoStatisticsUtilities fieldCheck;
      if (!fieldCheck.CheckFieldValid(source, selfField)) {
        AddErrorMessage(msg::ESa004);
        return 0;
      }
    }

    // ---- A named weights file orders the features by its unique-ID field.
    LumaUnicodeString uniqueField;
    if (info.Conceptualization == SpatialWeightsFile) {
      ZoStatisticsUtilities utilities;
      LumaArray<ZoSWMFileUniqueIndex> index;
      ZoConceptualizationModel model;
      unsigned char standardized;
      LumaArray<double> sums;
      std::int64_t position;
      std::FILE* file = utilities.CheckSWMFileValid(source, info.WeightsFilePath, uniqueField, index, model,
                                                    standardized, sums, position);
      if (!file) {
        AddErrorMessage(msg::ESa046);
        return 0;
      }
      std::fclose(file);
      records = QueryOrderedBy(source, uniqueField);
      if (!records) return 0;
    }

    // ---- Result fields.
    LUMA::LumaFieldInfos fields;
    std::vector<LumaUnicodeString> copied;  // source names, in field order
    if (!uniqueField.IsEmpty()) fields.push_back(CopyOf(source, uniqueField, "UniqueID")), copied.push_back(uniqueField);
    fields.push_back(CopyOf(source, info.FieldName, "Assessment")), copied.push_back(info.FieldName);
    if (!selfField.IsEmpty()) fields.push_back(CopyOf(source, selfField, "SelfWeight")), copied.push_back(selfField);
    const std::size_t firstOwn = fields.size();
    if (hotSpot) {
      fields.push_back(LUMA::LumaFieldInfo("Gi_Zscore", LUMA::FieldDouble));
      fields.push_back(LUMA::LumaFieldInfo("Gi_Pvalue", LUMA::FieldDouble));
      fields.push_back(LUMA::LumaFieldInfo("Gi_ConfInvl", LUMA::FieldInt32));
    } else {
      fields.push_back(LUMA::LumaFieldInfo("ALMI_MoranI", LUMA::FieldDouble));
      fields.push_back(LUMA::LumaFieldInfo("ALMI_Zscore", LUMA::FieldDouble));
      fields.push_back(LUMA::LumaFieldInfo("ALMI_Pvalue", LUMA::FieldDouble));
      LUMA::LumaFieldInfo typeField("ALMI_Type", LUMA::FieldText);
      typeField.SetSize(2);
      fields.push_back(typeField);
    }
    if (!ZoEngineToolkit::CreateValidFields(result, fields)) {
      AddErrorMessage(msg::ELc071);
      return 0;
    }
    if (!result->GetPrjCoordSys().IsSame(source->GetPrjCoordSys())) result->SetPrjCoordSys(source->GetPrjCoordSys());

    // ---- Values, and the self weights of Gi*.
    ZoCallProgress progress(nullptr, showProgress);
    if (progress) {
      progress->SetBothPosRange(0, 30);
      progress->SetTitleMessage(ZoStringEx::LoadResString(texts.title));
      progress->SetMessage(ZoStringEx::LoadResString(msg::IMb330));
    }
    const std::int64_t n = records->GetRecordCount();
    LumaArray<double> x, self;
    x.reserve(static_cast<std::size_t>(n));
    LUMA::LumaVariant value;
    for (bool more = records->MoveFirst(); more && !records->IsEOF(); more = records->MoveNext()) {
      records->GetFieldValue(info.FieldName, value);
      x.push_back(value.ToDouble());
      if (hotSpot) {
        double s = 1.0;
        if (!selfField.IsEmpty()) {
          records->GetFieldValue(selfField, value);
          s = value.ToDouble() > 0 ? value.ToDouble() : 0.0;  // zero and negative self weights are 0
        }
        self.push_back(s);
      }
    }

    // ---- The weights: in memory, a temporary file, or the caller's file.
    const bool inMemory = info.Conceptualization != SpatialWeightsFile && n <= kInMemoryLimit;
    LumaArray<WeightMatrixUnit> units;
    ZoWeightsFileRows file;
    if (inMemory) {
      // Gi* always uses raw weights in memory; local Moran's I honours the switch.
      ZoPatternsInformation weightsInfo = info;
      if (hotSpot) weightsInfo.Standardization = false;
      ZoStatisticsUtilities utilities;
      utilities.SetProgress(progress.get());
      if (!utilities.GetSpatialWeight(records.get(), weightsInfo, units, showProgress)) {
        AppendErrorText(utilities.GetStrErrorMes());
        return 0;
      }
    } else {
      if (info.Conceptualization != SpatialWeightsFile && !file.BuildTemporary(source, info, progress.get())) {
        AppendErrorText(file.Error());
        return 0;
      }
      const LumaUnicodeString& path =
          info.Conceptualization == SpatialWeightsFile ? info.WeightsFilePath : file.TemporaryPath();
      // Gi* reads raw rows; local Moran's I divides them by their row sums when asked.
      if (!file.Open(source, path, !hotSpot && info.Standardization, false)) {
        AppendErrorText(file.Error());
        AddErrorMessage(msg::ESa046);
        return 0;
      }
    }

    // ---- The statistic of every feature, over its stored neighbours only.
    if (progress) {
      progress->SetBothPosRange(31, 60);
      progress->SetTitleMessage(ZoStringEx::LoadResString(texts.title));
    }
    const LumaUnicodeString format = ZoStringEx::LoadResString(texts.format);
    double mean = 0, sumSquares = 0;
    for (double v : x) mean += v, sumSquares += v * v;
    mean /= static_cast<double>(n);
    const double sd = std::sqrt(sumSquares / static_cast<double>(n) - mean * mean);
    const local::MoranMoments moments(hotSpot ? LumaArray<double>{0.0} : x);
    LumaArray<double> z(static_cast<std::size_t>(n)), p(static_cast<std::size_t>(n)), moranI, lag;
    if (!hotSpot) moranI.resize(static_cast<std::size_t>(n)), lag.resize(static_cast<std::size_t>(n));
    ZoSparseRow row;
    std::size_t u = 0;
    for (std::int64_t i = 0; i < n; ++i) {
      if (!progress.Step(format, i, n)) {
        AddErrorMessage(msg::IMb030);
        return 0;
      }
      if (inMemory) {
        row.columns.clear();
        row.weights.clear();
        for (; u < units.size() && units[u].Index < (i + 1) * n; ++u) {
          row.columns.push_back(static_cast<std::int32_t>(units[u].Index - i * n));
          row.weights.push_back(units[u].Weight);
        }
      } else if (!file.Next(i, row)) {
        AppendErrorText(file.Error());
        return 0;
      }
      const auto k = static_cast<std::size_t>(i);
      if (hotSpot) {
        double out[2];
        local::GiStar(x, row, i, self[k], mean, sd, out);
        z[k] = out[0], p[k] = out[1];
      } else {
        double out[4];
        if (const char* id = local::LocalMoran(x, moments, row, i, out)) {
          AddErrorMessage(id);
          AddErrorMessage(msg::ESa034);
          return 0;
        }
        moranI[k] = out[0], z[k] = out[1], p[k] = out[2], lag[k] = out[3];
      }
    }
    file.Close();

    // ---- Bins or types.
    LumaArray<int> bins;
    LumaArray<LumaUnicodeString> types;
    if (hotSpot) {
      const bool ok = info.FDRCorrection ? local::FdrAdjusted(z, p, bins) : local::Confidence(z, p, bins);
      if (!ok) {
        AddErrorMessage(msg::ESa043);
        return 0;
      }
    } else {
      if (info.FDRCorrection && !local::FdrAdjusted(moranI, p, bins)) {
        AddErrorMessage(msg::ESa036);
        return 0;
      }
      if (const char* id = local::ClusterOutlierTypes(moranI, p, moments.d, lag, bins, types)) {
        AddErrorMessage(id);
        AddErrorMessage(msg::ESa037);
        return 0;
      }
    }

    // ---- One pass writes every result record with all its fields.
    if (progress) {
      progress->SetBothPosRange(61, 100);
      progress->SetMessage(ZoStringEx::LoadResString(msg::IMb037));
    }
    std::vector<std::pair<LumaUnicodeString, LumaUnicodeString>> fieldMap;
    for (std::size_t f = 0; f < copied.size(); ++f) fieldMap.push_back({copied[f], fields[f].GetName()});
    std::vector<LumaUnicodeString> own;
    for (std::size_t f = firstOwn; f < fields.size(); ++f) own.push_back(fields[f].GetName());
    const bool appended = result->AppendRecords(
        records.get(), fieldMap, progress.get(), own, [&](std::int64_t k, std::vector<LUMA::LumaVariant>& values) {
          const auto i = static_cast<std::size_t>(k);
          if (i >= z.size()) return false;
          if (hotSpot) {
            values[0] = z[i], values[1] = p[i], values[2] = LUMA::LumaVariant(bins[i]);
          } else {
            values[0] = moranI[i], values[1] = z[i], values[2] = p[i], values[3] = types[i];
          }
          return true;
        });
    if (!appended || !result->Commit()) {
      if (progress && progress->IsCanceled()) AddErrorMessage(msg::IMb030);
      AddErrorMessage(msg::ELc071);
      return 0;
    }
    return 1;
  } catch (const std::bad_alloc&) {
    AddErrorMessage(msg::EBa003);
    return 0;
  }
}

}  // namespace ZOC
