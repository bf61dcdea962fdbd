#include "simulator/timeline.h"

#include <algorithm>
#include <cinttypes>

#include "platform/machine/machine.h"
#include "platform/machine/text.h"
#include "simulator/dfu_names.h"
#include "simulator/wire_requests.h"

namespace simulator {

namespace {

constexpr u64 ProgressStepPercent = 10;
constexpr u8 HidSetReport = 9;

// Back to the line's beginning, and away with what stands there.
constexpr char EraseLine[] = "\r\033[K";

const char* NameOfState(DWORD state) {
  switch (state) {
    case SERVICE_STOPPED:
      return "stopped";
    case SERVICE_START_PENDING:
      return "start pending";
    case SERVICE_STOP_PENDING:
      return "stop pending";
    case SERVICE_RUNNING:
      return "running";
    case SERVICE_CONTINUE_PENDING:
      return "continue pending";
    case SERVICE_PAUSE_PENDING:
      return "pause pending";
    case SERVICE_PAUSED:
      return "paused";
    default:
      return "in a state of its own";
  }
}

// Nothing for what went well: most transfers do.
const char* NameOfResult(platform::UsbResult result) {
  switch (result) {
    case platform::UsbResult::Done:
      return "";
    case platform::UsbResult::Stalled:
      return " - refused";
    case platform::UsbResult::TimedOut:
      return " - no answer";
    case platform::UsbResult::Vanished:
      return " - the device left";
    case platform::UsbResult::Absent:
      return " - the device is gone";
  }
  return "";
}

std::string Format(const char* format, unsigned first, unsigned second) {
  char text[96];
  std::snprintf(text, sizeof(text), format, first, second);
  return text;
}

std::string DescribeDownload(const platform::TransferRecord& record) {
  const bool isCommand = IsCommand(record.setup, record.data);
  if (isCommand && record.data[0] == EraseCommand) {
    return Format("DNLOAD erase 0x%08X", AddressIn(record.data), 0);
  }
  if (isCommand && record.data[0] == SetAddressCommand) {
    return Format("DNLOAD set address 0x%08X", AddressIn(record.data), 0);
  }
  return Format("DNLOAD block %u, %u bytes", record.setup.Value, record.setup.Length);
}

// Status, a poll time-out of three bytes, and the state; the string's index behind them is of no
// use to anybody.
std::string DescribeStatus(const platform::TransferRecord& record) {
  if (record.data.size() < 6) {
    return "GETSTATUS";
  }
  const auto poll =
      static_cast<unsigned>(record.data[1] | record.data[2] << 8 | record.data[3] << 16);
  return "GETSTATUS: " + NameOfDfuStatus(record.data[0]) + ", " + NameOfDfuState(record.data[4]) +
         Format(", poll %u ms", poll, 0);
}

// Request numbers of the two classes overlap, but a keyboard is one or the other.
std::string DescribeClassRequest(const platform::TransferRecord& record) {
  switch (record.setup.Request) {
    case DfuDnload:
      return DescribeDownload(record);
    case DfuGetStatus:
      return DescribeStatus(record);
    case DfuClrStatus:
      return "CLRSTATUS";
    case DfuGetState:
      return record.data.empty() ? "GETSTATE" : "GETSTATE: " + NameOfDfuState(record.data[0]);
    case DfuAbort:
      return "ABORT";
    // HidD_SetOutputReport goes over the control pipe as this request, with the report's id in the
    // lower byte.
    case HidSetReport:
      return Format("SET_REPORT 0x%02X, %u bytes", record.setup.Value & 0xFF, record.setup.Length);
    default:
      return Format("class request 0x%02X, %u bytes", record.setup.Request, record.setup.Length);
  }
}

}  // namespace

std::string SecondsText(u64 milliseconds) {
  char text[32];
  std::snprintf(text, sizeof(text), "%" PRIu64 ".%03" PRIu64 " s", milliseconds / 1000,
                milliseconds % 1000);
  return text;
}

std::string DescribeTransfer(const platform::TransferRecord& record) {
  std::string text;
  if (IsClassRequest(record.setup)) {
    text = DescribeClassRequest(record);
  } else if (record.setup.Request == GetDescriptorRequest) {
    text = Format("GET_DESCRIPTOR type %u index %u", record.setup.Value >> 8,
                  record.setup.Value & 0xFF);
  } else if (record.setup.Request == SetInterfaceRequest) {
    text = Format("SET_INTERFACE alternate setting %u", record.setup.Value, 0);
  } else {
    text = Format("request 0x%02X, %u bytes", record.setup.Request, record.setup.Length);
  }
  return text + NameOfResult(record.result);
}

Timeline::Timeline(platform::Machine& machine, std::FILE* stream, const TimelineOptions& options)
    : machine_(machine), stream_(stream), options_(options) {}

void Timeline::WatchMachine() {
  watching_ = {
      machine_.services.reports.Observe([this](const platform::StatusReport& report) {
        Write("service", std::string("reports ") + NameOfState(report.status.dwCurrentState));
      }),
      machine_.debugLog.Observe([this](const platform::DebugLine& line) { WriteDebugLine(line); }),
      machine_.processes.launches.Observe([this](const platform::LaunchedProcess& launch) {
        Write("user", "is told " + platform::Utf8FromWide(launch.commandLine));
      }),
  };
  // These are many, so they come only when somebody asked for them.
  if (options_.wire) {
    watching_.push_back(machine_.transfers.Observe(
        [this](const platform::TransferRecord& record) { WriteTransfer(record); }));
  }
  if (options_.calls) {
    watching_.push_back(machine_.gate.ObserveFinished([this](const platform::FinishedCall& call) {
      Write("call", "thread " + std::to_string(call.threadId) + ": " + call.name + "(" +
                        call.arguments + ")" +
                        (call.error == 0 ? " -> done" : " -> error " + std::to_string(call.error)));
    }));
  }
}

// From whichever thread it happens on. Flushed line by line: who watches in real time wants to see
// it now.
void Timeline::Write(const char* speaker, const std::string& text) {
  const u64 nowMs = machine_.scheduler.NowMs();
  const std::string time = SecondsText(nowMs);
  const std::scoped_lock lock(lock_);
  lines_.push_back({nowMs, speaker, text});
  std::fprintf(stream_, "%s%12s  %-9s %s\n%s", status_.empty() ? "" : EraseLine, time.c_str(),
               speaker, text.c_str(), status_.c_str());
  std::fflush(stream_);
}

void Timeline::ShowStatus(const std::string& text) {
  const std::scoped_lock lock(lock_);
  if (text != status_) {
    std::fprintf(stream_, "%s%s", EraseLine, text.c_str());
    std::fflush(stream_);
    status_ = text;
  }
}

std::vector<TimelineLine> Timeline::lines() const {
  const std::scoped_lock lock(lock_);
  return lines_;
}

// A block's request tells its number alone; where it goes follows from what went before.
void Timeline::WriteTransfer(const platform::TransferRecord& record) {
  std::optional<WireWork> work;
  {
    const std::scoped_lock lock(lock_);
    work = reader_.Read(record);
  }
  std::string text = DescribeTransfer(record);
  if (work.has_value() && work->kind == WireWork::Kind::Block) {
    text += Format(" to 0x%08X", work->address, 0);
  }
  Write("wire", text);
}

void Timeline::WriteProgress(u64 bytesDone, u64 bytesInAll) {
  // What is written again, after a failure or in a second update, is no progress.
  const u64 percent = bytesInAll == 0 ? 100 : std::min<u64>(100, bytesDone * 100 / bytesInAll);
  {
    const std::scoped_lock lock(lock_);
    if (percent / ProgressStepPercent == lastTens_) {
      return;
    }
    lastTens_ = percent / ProgressStepPercent;
  }
  Write("keyboard", "has written " + std::to_string(percent) + " % of the firmware");
}

// A write can hold several lines, none, or half of one; each piece gets a line of its own.
void Timeline::WriteDebugLine(const platform::DebugLine& line) {
  const std::string text = platform::Utf8FromWide(line.text);
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    if (end > begin) {
      Write("debug", text.substr(begin, end - begin));
    }
    begin = end + 1;
  }
}

}  // namespace simulator
