// The fixture of the tests that look at a DFU device without the rest of the service.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/tablet_test.h"

class DfuDeviceTest : public TabletTest {
 protected:
  // The usual keyboard in DFU mode, with one memory map for each text.
  static simulator::KeyboardOptions KeyboardWithMaps(const std::vector<std::string>& maps) {
    simulator::KeyboardOptions options;
    options.alternateSettings.clear();
    for (const std::string& map : maps) {
      const u8 number = static_cast<u8>(options.alternateSettings.size());
      options.alternateSettings.push_back({number, map});
    }
    return options;
  }

  // Keeps the names of the calls about devices from now on.
  void WatchCalls() {
    watching_ = machine.gate.Observe([this](platform::Call call) {
      const std::string name = NameOf(call);
      if (name.compare(0, 3, "CM_") == 0 || name.compare(0, 7, "WinUsb_") == 0 ||
          call == platform::Call::CreateFileW || call == platform::Call::CloseHandle) {
        calls.push_back(name);
      }
    });
  }

  // The descriptors that devices were asked for, as "type 3 index 4, language 0409, 512 bytes".
  std::vector<std::string> DescriptorReads() const {
    std::vector<std::string> reads;
    for (const platform::TransferRecord& record : Transfers()) {
      char text[80];
      std::snprintf(text, sizeof(text), "type %d index %d, language %04x, %d bytes",
                    record.setup.Value >> 8, record.setup.Value & 0xFF, record.setup.Index,
                    record.setup.Length);
      reads.push_back(text);
    }
    return reads;
  }

  // Every open of a device has come to its end.
  void ExpectAllClosed() const {
    EXPECT_EQ(machine.handles.OpenCount(platform::HandleKind::WinUsb), 0u);
    EXPECT_EQ(machine.handles.OpenCount(platform::HandleKind::File), 0u);
  }

  std::vector<std::string> calls;

 private:
  platform::Observation watching_;
};
