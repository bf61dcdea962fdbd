// A DFU device that answers an operation by a script, and the log of what goes on between the two.
//
// Script and log are the same text, so that a test says in one line what the device answers and
// what must happen. Its words, one blank between them:
//   GETSTATUS=0,4,500   GETSTATUS, answered with bStatus 0, bState 4 and bwPollTimeout 500 ms;
//                       GETSTATUS=0 answers with the first byte only
//   GETSTATE=2          GETSTATE, answered with bState 2
//   ERASE@08000000 POINTER@08000000 BLOCK3:1024 LEAVE   DNLOAD, by what it carries
//   CLRSTATUS ABORT     the other requests
//   SELECT=0            the selection of an alternate setting
//   ABORT!              any of these, and the device refuses it
//   OPEN FREE CLOSE     the device is opened; its interface is freed, then its file closed
//   COMPLETE            the user is told that word
//   [Dnload]            the context is published in that phase; [Dnload:500A] with a failure
// and whatever the test notes itself. Alike publications in a row count as one, and a script
// without any leaves them all out. What the script does not foresee is refused.
#pragma once

#include <string>
#include <vector>

#include "dfuengine/operation_context.h"
#include "platform/machine/call_gate.h"
#include "simulator/virtual_keyboard.h"

class ScriptedDevice {
 public:
  // The keyboard is itself until a script is played.
  ScriptedDevice(platform::Machine& machine, simulator::VirtualKeyboard& keyboard);
  ~ScriptedDevice();
  ScriptedDevice(const ScriptedDevice&) = delete;
  ScriptedDevice& operator=(const ScriptedDevice&) = delete;

  // From now on the device answers by the script. Begins a new log.
  void Play(const std::string& script);

  // Fails the test when something else happened than what the script says.
  void ExpectPlayed(const std::string& what) const;

  void Note(const std::string& word);
  void NotePublication(const OperationContext& published);

 private:
  void NoteCall(platform::Call call);
  std::optional<platform::UsbReply> Answer(const WINUSB_SETUP_PACKET& setup,
                                           const platform::Bytes& data);

  simulator::VirtualKeyboard& keyboard_;
  std::vector<platform::Observation> watching_;
  bool playing_ = false;
  std::string script_;
  std::vector<std::string> words_;  // of the script
  std::size_t nextWord_ = 0;
  std::string log_;
  std::string lastNoted_;
};

// The last digits of a status, as the words have them.
std::string StatusWord(u32 status);
