#include "simulator/update_picture.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "simulator/wire_requests.h"

namespace simulator {

namespace {

constexpr char StartUp[] = "start-up delay";
constexpr char Asking[] = "version and request";
constexpr char IntoDfu[] = "restart into DFU mode";
constexpr char Looking[] = "reading the keyboard";
constexpr char Erasing[] = "erasing";
constexpr char Writing[] = "writing";
constexpr char Leaving[] = "leaving DFU mode";
constexpr char IntoFirmware[] = "restart with firmware";

constexpr char StateUntouched[] = "untouched";
constexpr char StateErased[] = "erased";
constexpr char StateWritten[] = "written";
constexpr char StateRefused[] = "refused";

}  // namespace

UpdatePicture::UpdatePicture(const NorFlash& flash) {
  for (const FlashSector& sector : flash.sectors()) {
    sectors_.push_back({sector.address, sector.sizeBytes, StateUntouched, 0});
  }
  // The service gives Windows time to find all devices before it looks for its own.
  phases_.push_back({.name = StartUp});
}

// A phase that comes again, as after a pull, is drawn again: the picture goes along the time.
UpdatePhase& UpdatePicture::Enter(const char* name, u64 timeMs) {
  if (phases_.back().name != name) {
    phases_.back().toMs = timeMs;
    phases_.push_back({.name = name, .fromMs = timeMs, .toMs = timeMs});
  }
  return phases_.back();
}

void UpdatePicture::Note(const platform::TransferRecord& record) {
  const std::scoped_lock hold(lock_);
  const char* name = phases_.back().name;
  const bool isHid = IsClassRequest(record.setup, HidSetReportRequest);
  const std::optional<WireWork> work = reader_.Read(record);
  if (work.has_value()) {
    name = work->kind == WireWork::Kind::Erase   ? Erasing
           : work->kind == WireWork::Kind::Leave ? Leaving
                                                 : Writing;
  } else if (name == StartUp || name == IntoFirmware) {
    name = Asking;
  } else if (name == IntoDfu) {
    name = Looking;
  }
  Enter(name, record.startMs).toMs = record.endMs;
  if (work.has_value()) {
    NoteWork(*work, record);
  } else if (const std::optional<WireStatus> status = ReadStatus(record)) {
    NoteStatus(*status);
    if (status->state == dfuMANIFEST) {
      Enter(IntoFirmware, record.endMs);
    }
  } else if (isHid && record.result == platform::UsbResult::Done) {
    Enter(IntoDfu, record.endMs);
  }
}

// A block that is followed by another one was taken, even when nobody asked how it went.
void UpdatePicture::NoteWork(const WireWork& work, const platform::TransferRecord& record) {
  FinishBlock();
  pending_ = work;
  isPending_ = record.result == platform::UsbResult::Done;
  if (record.result == platform::UsbResult::Stalled && Find(work.address) != nullptr) {
    Find(work.address)->state = StateRefused;
  }
}

void UpdatePicture::NoteStatus(const WireStatus& status) {
  // What the device did not take is not written. It may be sent again, and then the sector changes
  // its colour once more.
  if (status.status != dfuOK) {
    if (isPending_ && Find(pending_.address) != nullptr) {
      Find(pending_.address)->state = StateRefused;
    }
    isPending_ = false;
  } else if (status.state == dfuDNLOADIDLE) {
    FinishBlock();
  }
}

// A block may reach from one sector into the next.
void UpdatePicture::FinishBlock() {
  if (!std::exchange(isPending_, false)) {
    return;
  }
  Sector* sector = Find(pending_.address);
  if (pending_.kind == WireWork::Kind::Erase && sector != nullptr) {
    sector->state = StateErased;
    sector->bytesWritten = 0;
  }
  while (pending_.kind == WireWork::Kind::Block && pending_.bytes != 0 && sector != nullptr) {
    const u32 room = sector->sizeBytes - (pending_.address - sector->address);
    const u32 bytes = std::min(room, pending_.bytes);
    sector->state = StateWritten;
    sector->bytesWritten += bytes;
    pending_.address += bytes;
    pending_.bytes -= bytes;
    sector = Find(pending_.address);
  }
}

// Null where the keyboard has no memory: nothing is drawn there, the list of dropped bytes shows
// it.
UpdatePicture::Sector* UpdatePicture::Find(u32 address) {
  const auto found = std::find_if(sectors_.begin(), sectors_.end(), [&](const Sector& sector) {
    return address >= sector.address && address - sector.address < sector.sizeBytes;
  });
  return found == sectors_.end() ? nullptr : &*found;
}

void UpdatePicture::NoteReturn(u64 timeMs) {
  const std::scoped_lock hold(lock_);
  UpdatePhase& phase = phases_.back();
  if (phase.name == IntoDfu || phase.name == IntoFirmware) {
    phase.toMs = std::max(phase.toMs, timeMs);
  }
}

const char* UpdatePicture::PhaseName() const {
  const std::scoped_lock hold(lock_);
  return phases_.back().name;
}

void UpdatePicture::Describe(const UpdateAccount& account, u64 nowMs, Json& told) const {
  const std::scoped_lock hold(lock_);
  told["sectors"] = Json::array();
  for (const Sector& sector : sectors_) {
    told["sectors"].push_back({{"address", sector.address},
                               {"bytes", sector.sizeBytes},
                               {"state", sector.state},
                               {"bytesWritten", sector.bytesWritten}});
  }
  told["phases"] = Json::array();
  for (const UpdatePhase& phase : phases_) {
    // Where nothing was ever said to a keyboard, the delay lasts.
    const u64 toMs = phases_.size() == 1 ? nowMs : phase.toMs;
    const AccountFigures figures = account.Close(phase.fromMs, toMs);
    told["phases"].push_back({{"name", phase.name},
                              {"fromMs", phase.fromMs},
                              {"toMs", toMs},
                              {"fixedMs", figures.delayMs - figures.tickMs},
                              {"deviceMs", figures.pollMs + figures.awayMs},
                              {"wireMs", figures.wireMs},
                              {"waitingMs", figures.tickMs + figures.elseMs}});
  }
}

}  // namespace simulator
