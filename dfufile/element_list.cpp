#include "dfufile/element_list.h"

#include <new>
#include <utility>

ElementList::~ElementList() {
  for (u32 i = 0; i < size(); ++i) {
    delete[] records_[i]->Data;
    delete records_[i];
  }
}

DfuElement* ElementList::Insert(u32 position, u32 address, u32 size) {
  DfuElement* const record = new (std::nothrow) DfuElement{address, size, nullptr};
  if (record != nullptr && !records_.Insert(position, record)) {
    delete record;
    return nullptr;
  }
  return record;
}

DfuElement* ElementList::InsertWithBytes(u32 position, u32 address, u32 size) {
  u8* bytes = nullptr;
  if (size != 0) {
    bytes = new (std::nothrow) u8[size];
    if (bytes == nullptr) {
      return nullptr;
    }
  }
  DfuElement* const record = Insert(position, address, size);
  if (record == nullptr) {
    delete[] bytes;
    return nullptr;
  }
  record->Data = bytes;
  return record;
}

void ElementList::Reverse() {
  for (u32 first = 0, last = size(); first + 1 < last; ++first) {
    --last;
    std::swap(records_[first], records_[last]);
  }
}
