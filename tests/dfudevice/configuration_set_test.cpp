#include "dfudevice/configuration_set.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace {

using Bytes = std::vector<u8>;

const Bytes Endpoint = {7, 5, 0x81, 2, 64, 0, 0};

Bytes Interface(u8 number) {
  return {9, 4, number, 0, 0, 0xFE, 1, 2, 4};
}

Bytes Functional(u8 low, u8 high) {
  return {9, 0x21, 0x0B, 0xFF, 0x00, low, high, 0x1A, 0x01};
}

// A configuration descriptor that counts all bytes of the set, and the other descriptors behind it.
Bytes Set(const std::vector<Bytes>& descriptors) {
  Bytes set = {9, 2, 0, 0, 1, 1, 0, 0x80, 50};
  for (const Bytes& each : descriptors) {
    set.insert(set.end(), each.begin(), each.end());
  }
  set[2] = static_cast<u8>(set.size());
  set[3] = static_cast<u8>(set.size() >> 8);
  return set;
}

Bytes With(Bytes set, std::size_t at, u8 value) {
  set[at] = value;
  return set;
}

Bytes Beginning(Bytes set, std::size_t length) {
  set.resize(length);
  // The vector is as long as what was read, so that a look beyond it is noticed.
  set.shrink_to_fit();
  return set;
}

TEST(ConfigurationSetTest, CountsAlternateSettings) {
  const Bytes first = Interface(0);
  const Bytes second = Interface(1);
  const Bytes functional = Functional(0, 4);
  const Bytes two = Set({first, first});
  const struct {
    const char* what;
    Bytes set;
    u32 count;
  } cases[] = {
      {"one setting", Set({first, functional}), 1},
      {"two settings", Set({first, first, functional}), 2},
      {"descriptors between them", Set({first, Endpoint, functional, first, Endpoint, first}), 3},
      {"the second interface has more", Set({first, second, second, second, functional}), 3},
      {"both have more", Set({first, first, second, second, second}), 2},
      {"each has one", Set({first, second, Interface(2), functional}), 1},
      {"settings that are not neighbours", Set({first, second, first}), 1},
      {"no interface", Set({functional}), 1},
      {"a long configuration descriptor", With(Set({{0xEE, 0xEE}, first, first}), 0, 11), 2},
      {"the set ends behind the first setting", With(two, 2, 18), 1},
      {"the set ends before the second one's number", With(two, 2, 20), 1},
      {"as many settings as fit", Set(std::vector<Bytes>(55, first)), 55},

      // The last descriptor's own length is its maker's affair.
      {"functional descriptor of length 7", Set({first, first, With(functional, 0, 7)}), 2},
      {"of length 10", Set({first, first, With(functional, 0, 10)}), 2},
      {"of length 18", Set({first, first, With(functional, 0, 18)}), 2},
      {"of length 0", Set({first, first, With(functional, 0, 0)}), 2},
      {"of length 1", Set({first, first, With(functional, 0, 1)}), 2},
      {"of the length that makes its version a configuration descriptor",
       With(Set({first, With(functional, 0, 7)}), 26, 2), 0},

      // A length that leads nowhere ends the walk behind what it belongs to.
      {"a setting of length 0", Set({first, With(first, 0, 0), first}), 2},
      {"a setting of length 1", Set({first, With(first, 0, 1), first}), 2},
      {"a setting that goes beyond the set", Set({first, With(first, 0, 10)}), 2},
      {"a setting cut off in front of its number", Set({first, {2, 4}}), 1},
      {"a type cut off", Set({first, {9}}), 1},
      {"the configuration descriptor of length 0", With(two, 0, 0), 1},
      {"of length 1", With(two, 0, 1), 1},
      {"beyond the set", With(two, 0, 28), 1},
      {"a set shorter than its first descriptor", With(two, 2, 8), 1},

      {"a second configuration descriptor", Set({first, {9, 2, 0, 0, 1, 1, 0, 0x80, 50}}), 0},
      {"one that goes beyond the set", Set({first, {9, 2}}), 0},
      {"one of length 0", Set({first, first, {0, 2}}), 0},
      {"one in a configuration descriptor that says too little", Set({{0xEE, 2}, first}), 0},
      {"one behind the interface that counts", Set({first, first, second, {9, 2, 0}}), 2},
      {"more bytes claimed than read", With(two, 2, 28), 0},
      {"less than a configuration descriptor", Beginning(two, 8), 0},
      {"nothing", {}, 0},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(CountAlternateSettings(each.set.data(), each.set.size()), each.count) << each.what;
  }
}

TEST(ConfigurationSetTest, TakesTransferSizeFromTheLastNineBytes) {
  const Bytes plain = Set({Interface(0), Functional(0x34, 0x12)});
  const struct {
    const char* what;
    Bytes set;
    std::optional<u16> transferSize;
  } cases[] = {
      {"functional descriptor at the end", plain, u16{0x1234}},
      {"size 0", Set({Functional(0, 0)}), u16{0}},
      {"its type and length do not count", With(With(plain, 18, 0), 19, 0x42), u16{0x1234}},
      {"not the last one", Set({Functional(0x34, 0x12), Interface(0)}), u16{0x01FE}},
      {"bytes behind the set", With(Set({Functional(0x34, 0x12), Endpoint}), 2, 18), u16{0x1234}},
      {"the configuration descriptor alone", Set({}), u16{0x0001}},

      {"less than nine bytes claimed", With(plain, 2, 8), std::nullopt},
      {"more bytes claimed than read", With(plain, 2, 28), std::nullopt},
      {"nothing", {}, std::nullopt},
  };
  constexpr u16 Untouched = 0xABCD;
  for (const auto& each : cases) {
    u16 transferSize = Untouched;
    EXPECT_EQ(FindTransferSize(each.set.data(), each.set.size(), transferSize),
              each.transferSize.has_value())
        << each.what;
    EXPECT_EQ(transferSize, each.transferSize.value_or(Untouched)) << each.what;
  }
}

}  // namespace
