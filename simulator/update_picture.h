// What an update did, as it is drawn for people: the flash sector by sector, and where the time of
// each phase went. It is read from the wire, so it shows what the keyboard was told, not what the
// service believes. Any thread.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "simulator/json.h"
#include "simulator/nor_flash.h"
#include "simulator/wire_reader.h"

namespace simulator {

// A stretch of the update, in milliseconds of virtual time. What is not accounted for by the other
// three is waiting: the service looks once in a while whether an operation is over.
struct UpdatePhase {
  // One of the names in the .cpp file. Phases are told apart by its address, not by its letters.
  const char* name = "";
  u64 fromMs = 0;
  u64 toMs = 0;
  u64 fixedMs = 0;   // delays that the service always makes
  u64 deviceMs = 0;  // the keyboard restarts, erases or writes
  u64 wireMs = 0;    // transfers

  u64 waitingMs() const { return toMs - fromMs - fixedMs - deviceMs - wireMs; }
};

class UpdatePicture {
 public:
  // Of a keyboard with such a flash.
  explicit UpdatePicture(const NorFlash& flash);

  // For every transfer of the run, in order, once it has ended. The first one ends the start-up
  // delay.
  void Note(const platform::TransferRecord& record);

  // The keyboard is back from a restart, in either mode. The time up to here is the device's; what
  // the service still waits behind it is not. Means nothing outside a restart.
  void NoteReturn(u64 timeMs);

  // The phase that lasts. The text lives as long as the program.
  const char* PhaseName() const;

  // Sets "sectors" and "phases" as the schema has them and leaves all else in told alone. A run in
  // which nothing was sent has one phase, which lasts until nowMs.
  void Describe(u64 nowMs, Json& told) const;

 private:
  // An erase sector of the flash. bytesWritten counts since it was erased last, so a block that is
  // taken twice counts twice.
  struct Sector {
    u32 address;
    u32 sizeBytes;
    const char* state;
    u64 bytesWritten;
  };

  // All of these with the lock held.
  UpdatePhase& Enter(const char* name, u64 timeMs);
  void NoteWork(const WireWork& work, const platform::TransferRecord& record);
  void NoteStatus(const WireStatus& status);
  void FinishBlock();
  Sector* Find(u32 address);
  static UpdatePhase Until(UpdatePhase phase, u64 timeMs);

  mutable std::mutex lock_;  // guards the rest
  WireReader reader_;
  std::vector<Sector> sectors_;
  std::vector<UpdatePhase> phases_;
  WireWork pending_;  // sent, and the keyboard has not said how it went
  bool isPending_ = false;
  bool isBusy_ = false;  // the device said so last
  u64 lastEndMs_ = 0;
};

}  // namespace simulator
