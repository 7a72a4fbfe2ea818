#pragma once
// LumaArray<T>: the host's growable array. It is a std::vector with the
// host's method names added, so library code can use either vocabulary and
// hand out contiguous views (GetData) without copying.
#include <cstddef>
#include <vector>

namespace LUMA {

template <class T>
class LumaArray : public std::vector<T> {
 public:
  using std::vector<T>::vector;

  std::size_t GetSize() const { return this->size(); }
  // Resizes; new elements are value-initialised.
  void SetSize(std::size_t n) { this->resize(n); }
  bool IsEmpty() const { return this->empty(); }
  // Appends and returns the index of the new element.
  std::size_t Add(const T& value) {
    this->push_back(value);
    return this->size() - 1;
  }
  void RemoveAll() { this->clear(); }
  T* GetData() { return this->data(); }
  const T* GetData() const { return this->data(); }
  const T& GetAt(std::size_t i) const { return (*this)[i]; }
  void SetAt(std::size_t i, const T& value) { (*this)[i] = value; }
};

}  // namespace LUMA
