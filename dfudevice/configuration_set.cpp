#include "dfudevice/configuration_set.h"

#include "common/little_endian.h"

namespace {

constexpr u8 ConfigurationType = 2;
constexpr u8 InterfaceType = 4;

// The configuration descriptor in front of a set has nine bytes, and so has the DFU functional
// descriptor at its end.
constexpr std::size_t ConfigurationBytes = 9;
constexpr std::size_t FunctionalBytes = 9;

// Offsets within descriptors.
constexpr std::size_t TypeOffset = 1;
constexpr std::size_t TotalLengthOffset = 2;
constexpr std::size_t InterfaceNumberOffset = 2;
constexpr std::size_t TransferSizeOffset = 5;

// Counts the alternate settings while the interface descriptors of a set pass by.
class AlternateSettingCounter {
 public:
  // False once the interface that is counted is complete.
  bool Take(u8 interfaceNumber) {
    if (started_ && interfaceNumber == previous_) {
      ++count_;
      return true;
    }
    if (count_ > 1) {
      return false;
    }
    started_ = true;
    previous_ = interfaceNumber;
    return true;
  }

  u32 count() const { return count_; }

 private:
  bool started_ = false;
  u8 previous_ = 0;
  u32 count_ = 1;
};

// The offset of the descriptor behind the one at that offset; the end of the set when the length of
// the latter does not lead on within the set.
std::size_t NextDescriptor(const u8* set, std::size_t totalBytes, std::size_t at) {
  const std::size_t length = set[at];
  return length > TypeOffset && length < totalBytes - at ? at + length : totalBytes;
}

}  // namespace

u32 CountAlternateSettings(const u8* set, std::size_t setBytes) {
  if (setBytes < ConfigurationBytes) {
    return 0;
  }
  const std::size_t totalBytes = LittleEndian16(set + TotalLengthOffset);
  if (totalBytes > setBytes) {
    return 0;
  }

  AlternateSettingCounter counter;
  for (std::size_t at = NextDescriptor(set, totalBytes, 0); totalBytes - at > TypeOffset;
       at = NextDescriptor(set, totalBytes, at)) {
    const u8 type = set[at + TypeOffset];
    if (type == ConfigurationType) {
      return 0;
    }
    if (type == InterfaceType && totalBytes - at > InterfaceNumberOffset &&
        !counter.Take(set[at + InterfaceNumberOffset])) {
      break;
    }
  }
  return counter.count();
}

bool FindTransferSize(const u8* set, std::size_t setBytes, u16& transferSize) {
  if (setBytes < ConfigurationBytes) {
    return false;
  }
  const std::size_t totalBytes = LittleEndian16(set + TotalLengthOffset);
  if (totalBytes < FunctionalBytes || totalBytes > setBytes) {
    return false;
  }
  transferSize = LittleEndian16(set + totalBytes - FunctionalBytes + TransferSizeOffset);
  return true;
}
