#include "common/ReportTable.h"

#include <cmath>
#include <variant>

#include "StatisticsAnalyst/ZoRecordsetPtr.h"
#include "common/Errors.h"
#include "host/LumaFieldInfo.h"
#include "host/ZoDatasetVector.h"
#include "host/ZoEngineToolkit.h"
#include "host/ZoMessageIds.h"
#include "host/ZoQueryDef.h"

namespace ZOC::front {

namespace {

int FieldTypeOf(const ReportTable& table, std::size_t column) {
  for (const ReportValues& row : table.rows) {
    const ReportValue& v = row[column].second;
    if (std::holds_alternative<std::string>(v)) return LUMA::FieldText;
    if (std::holds_alternative<double>(v)) return LUMA::FieldDouble;
    if (std::holds_alternative<long long>(v) || std::holds_alternative<bool>(v)) return LUMA::FieldInt32;
  }
  return LUMA::FieldDouble;
}

LUMA::LumaVariant VariantOf(const ReportValue& v) {
  if (const auto* b = std::get_if<bool>(&v)) return LUMA::LumaVariant(*b ? 1 : 0);
  if (const auto* n = std::get_if<long long>(&v)) return LUMA::LumaVariant(static_cast<std::int64_t>(*n));
  if (const auto* x = std::get_if<double>(&v)) return std::isfinite(*x) ? LUMA::LumaVariant(*x) : LUMA::LumaVariant();
  if (const auto* s = std::get_if<std::string>(&v)) return LUMA::LumaVariant(LUMA::LumaUnicodeString(*s));
  return {};
}

}  // namespace

void WriteReportTable(ZoDatasetVector* target, const ReportTable& table) {
  auto fail = [&](const std::string& why) {
    throw Failure(MessageText(msg::EUa016, "the " + table.name + " table: " + why));
  };
  if (!target) fail("no table");
  LUMA::LumaFieldInfos fields;
  for (std::size_t c = 0; c < table.columns.size(); ++c)
    fields.push_back(LUMA::LumaFieldInfo(table.columns[c], FieldTypeOf(table, c)));
  const std::size_t columns = fields.size();
  if (!ZoEngineToolkit::CreateValidFields(target, fields) || fields.size() != columns)
    fail("its fields cannot be created");
  const ZoRecordsetPtr records(target->Query(ZoQueryDef()));
  if (!records) fail("it cannot be opened");
  for (std::size_t k = 0; k < table.rows.size(); ++k) {
    bool ok = records->AddNew(ZoGeometry());
    for (std::size_t c = 0; ok && c < columns; ++c)
      ok = records->SetFieldValue(fields[c].GetName(), VariantOf(table.rows[k][c].second));
    if (!ok || !records->Update()) {
      records->CancelUpdate();
      fail("row " + std::to_string(k + 1) + " cannot be written");
    }
  }
}

}  // namespace ZOC::front
