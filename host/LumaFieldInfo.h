#pragma once
// LumaFieldInfo: a field's name, caption, host type code and flags.
#include "host/LumaArray.h"
#include "host/LumaUnicodeString.h"

namespace LUMA {

// Host field type codes. The numeric analysis types are 2, 3, 4, 6, 7 and 16.
enum LumaFieldType : int {
  FieldBoolean = 1,
  FieldByte = 2,
  FieldInt16 = 3,
  FieldInt32 = 4,
  FieldSingle = 6,
  FieldDouble = 7,
  FieldText = 10,
  FieldInt64 = 16,
  FieldBinary = 18,
  FieldDateTime = 22,
  FieldDate = 23,
  FieldTime = 24,
  FieldOther = 127,  // list types and anything without a closer host code
};

class LumaFieldInfo {
 public:
  LumaFieldInfo() = default;
  LumaFieldInfo(LumaUnicodeString name, int type, bool system = false)
      : m_name(name), m_caption(std::move(name)), m_type(type), m_system(system) {}

  const LumaUnicodeString& GetName() const { return m_name; }
  void SetName(const LumaUnicodeString& name) { m_name = name; }
  const LumaUnicodeString& GetCaption() const { return m_caption; }
  void SetCaption(const LumaUnicodeString& caption) { m_caption = caption; }
  int GetType() const { return m_type; }
  void SetType(int type) { m_type = type; }
  // Maximum width for text fields, 0 when unbounded.
  int GetSize() const { return m_size; }
  void SetSize(int size) { m_size = size; }
  // System fields are maintained by the host (the feature identifier "QlID").
  bool IsSystemField() const { return m_system; }
  void SetSystemField(bool system) { m_system = system; }

 private:
  LumaUnicodeString m_name;
  LumaUnicodeString m_caption;
  int m_type = FieldDouble;
  int m_size = 0;
  bool m_system = false;
};

using LumaFieldInfos = LumaArray<LumaFieldInfo>;

// True for the numeric analysis types 2, 3, 4, 6, 7 and 16 (bit mask 0x100DC).
inline bool IsNumericFieldType(int type) { return type >= 0 && type < 17 && ((0x100DC >> type) & 1) != 0; }

}  // namespace LUMA
