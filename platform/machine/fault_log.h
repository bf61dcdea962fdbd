// What callers of the layer did wrong: a handle closed twice, a length beyond the buffer, a flag
// that the layer does not model. A test fails when its machine has one; vantrel-sim prints them.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/machine/records.h"

namespace platform {

// Observers are told at once, in the midst of the call and with locks of the layer held: of the
// machine they ask nothing but the time.
class FaultLog : public Observers<std::string> {
 public:
  // One sentence that begins with the name of the call. Callable with locks of the layer held.
  void Add(const std::string& fault);
  // In the order in which they came.
  std::vector<std::string> All() const;

  // Forgets the faults whose text holds the words, for the test that provokes them; their number. A
  // test that expects a fault which did not come gets 0, and fails on that.
  std::size_t Expect(const std::string& words);

 private:
  mutable std::mutex lock_;
  std::vector<std::string> faults_;
};

}  // namespace platform
