// What an update did, as it is drawn for people: the flash sector by sector, and the phases of the
// run. It is read from the wire, so it shows what the keyboard was told, not what the service
// believes. Any thread.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "simulator/json.h"
#include "simulator/nor_flash.h"
#include "simulator/update_account.h"
#include "simulator/wire_reader.h"

namespace simulator {

// A stretch of the run, in milliseconds of virtual time.
struct UpdatePhase {
  // One of the names in the .cpp file. Phases are told apart by its address, not by its letters.
  const char* name = "";
  u64 fromMs = 0;
  u64 toMs = 0;
};

class UpdatePicture {
 public:
  // Of a keyboard with such a flash.
  explicit UpdatePicture(const NorFlash& flash);

  // For every transfer of the run, in order, once it has ended. The first one ends the start-up
  // delay.
  void Note(const platform::TransferRecord& record);

  // The keyboard is back from a restart, in either mode. Means nothing outside a restart.
  void NoteReturn(u64 timeMs);

  // The phase that lasts. The text lives as long as the program.
  const char* PhaseName() const;

  // Sets "sectors" and "phases" as the schema has them and leaves all else in told alone. Where the
  // time of each phase went is asked of the account. A run in which nothing was sent has one phase,
  // which lasts until nowMs.
  void Describe(const UpdateAccount& account, u64 nowMs, Json& told) const;

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

  mutable std::mutex lock_;  // guards the rest
  WireReader reader_;
  std::vector<Sector> sectors_;
  std::vector<UpdatePhase> phases_;
  WireWork pending_;  // sent, and the keyboard has not said how it went
  bool isPending_ = false;
};

}  // namespace simulator
