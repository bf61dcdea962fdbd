// A tablet on which the service has found its package file; the test says what is in it.
#pragma once

#include <algorithm>
#include <vector>

#include "common/package_values.h"
#include "simulator/dfuse_file.h"
#include "tests/support/tablet_test.h"

class PackageFileTest : public TabletTest {
 protected:
  PackageFileTest() {
    static constexpr char Name[] = "VantrelKb_1.2.2.1.dfu";
    std::copy_n(Name, sizeof(Name), packagePath + FileRepositoryPathBytes);
  }

  void WritePackageFile(const std::vector<u8>& bytes) {
    ASSERT_TRUE(machine.drive.WriteFile(packagePath, bytes.data(), bytes.size()));
  }

  static simulator::DfuSeTarget Target(u8 alternateSetting,
                                       const std::vector<simulator::DfuSeElement>& elements) {
    simulator::DfuSeTarget target;
    target.alternateSetting = alternateSetting;
    target.elements = elements;
    return target;
  }

  static std::vector<u8> FileOf(const std::vector<simulator::DfuSeTarget>& targets) {
    simulator::DfuSeFile file;
    file.targets = targets;
    return simulator::BuildDfuSe(file);
  }

  // From the read with this number from now on the drive fails, until StopFailing.
  void FailReadsFrom(u64 read) {
    // Makes the fixture stop counting: how many reads there are is up to the C library.
    KeepFailing(platform::Call::ReadBinaryFile, ERROR_CRC);
    StopFailing();
    machine.gate.FailCall(platform::Call::ReadBinaryFile, static_cast<u32>(read), ERROR_CRC, true);
  }

  bool HasFilesOpen() const { return machine.handles.OpenCount(platform::HandleKind::File) != 0; }
};
