// The memory that the product asks for in a way that can be refused: with new (std::nothrow). All
// memory whose size comes from a file or a device is such, and so are images and operations.
//
// A program that links vantrel_memory gets counting forms of operator new and delete: vantrel-sim,
// the tests and the proof do.
#pragma once

#include <cstddef>

namespace simulator {

struct MemoryFigures {
  std::size_t blocks = 0;  // in use now
  std::size_t bytes = 0;
  std::size_t requests = 0;  // so far
  std::size_t asked = 0;     // bytes, in all requests so far
  std::size_t peak = 0;      // the most bytes that were in use at once
};

MemoryFigures ProductMemory();

// From now on the peak is that of what comes; a child process begins with its parent's.
void ForgetMemoryPeak();

// The request with that number from now (1 is the next one, on any thread) is refused; 0: none.
void RefuseMemoryRequest(std::size_t number);

// Called on the thread whose request is refused, in the midst of it.
void OnMemoryRefused(void (*observer)());

// Whether the ordered refusal has happened.
bool MemoryWasRefused();

}  // namespace simulator
