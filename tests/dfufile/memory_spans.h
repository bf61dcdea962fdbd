// Elements, sectors and the pieces of a cut as tests write them down.
#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "dfudevice/memory_map.h"
#include "tests/dfufile/image_records.h"

// An element, a sector or a piece of an element.
struct Span {
  u32 address;
  u32 size;
  char access;
  u32 selected;
  u32 element;
};

// Reads "address+size address+size ...". A size may be in MiB, with an 'M' behind it. A sector may
// have its access letter behind that and then '!' when it is not selected; a piece may have ':' and
// the number of the element that it is from.
inline std::vector<Span> Spans(const std::string& text) {
  std::vector<Span> spans;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    Span span = {0, 0, 'g', 1, 0};
    char* at = nullptr;
    span.address = static_cast<u32>(std::strtoul(word.c_str(), &at, 0));
    span.size = static_cast<u32>(std::strtoul(at + 1, &at, 0));
    if (*at == 'M') {
      span.size <<= 20;
      ++at;
    }
    if (*at >= 'a') {
      span.access = *at++;
    }
    span.selected = *at == '!' ? 0 : 1;
    span.element = *at == ':' ? static_cast<u32>(std::atoi(at + 1)) : 0;
    spans.push_back(span);
  }
  return spans;
}

inline Blocks Elements(const std::string& text) {
  Blocks blocks;
  for (const Span& span : Spans(text)) {
    const u32 element = static_cast<u32>(blocks.size());
    blocks.push_back({span.address, PatternAt(span.address, span.size, element)});
  }
  return blocks;
}

inline Blocks Pieces(const std::string& text) {
  Blocks blocks;
  for (const Span& span : Spans(text)) {
    blocks.push_back({span.address, PatternAt(span.address, span.size, span.element)});
  }
  return blocks;
}

// The sectors as a map, which lives as long as the object.
class TestMap {
 public:
  explicit TestMap(const std::string& sectors, u8 alternateSetting = 0)
      : TestMap(Spans(sectors), alternateSetting) {}
  explicit TestMap(const std::vector<Span>& sectors, u8 alternateSetting = 0) {
    for (const Span& span : sectors) {
      const u32 index = static_cast<u32>(records_.size());
      records_.push_back(
          {span.address, span.address, index, span.size, span.access, span.selected});
    }
    map_.alternateSetting = alternateSetting;
    map_.sectorCount = static_cast<u32>(records_.size());
    map_.sectors = records_.data();
  }
  const MemoryMap* get() const { return &map_; }

 private:
  std::vector<MemorySector> records_;
  MemoryMap map_ = {};
};
