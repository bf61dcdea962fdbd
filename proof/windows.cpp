#include "proof/windows.h"

#include <windows.h>

namespace proof {

namespace {

// The state that the event reports or fails to report; 0 for an event of another kind.
u32 StateReported(const Event& event, bool isFirst) {
  if (event.what == Happening::CallFailed && event.call == platform::Call::SetServiceStatus) {
    return isFirst ? SERVICE_START_PENDING : SERVICE_RUNNING;
  }
  return event.what == Happening::Reported ? event.value : 0;
}

// The start-up sequence is the thread's that reports first, from then until it reports RUNNING.
Window FindStartUp(const std::vector<Event>& events) {
  Window window;
  window.end = events.size();
  window.begin = events.size();
  for (std::size_t i = 0; i < events.size(); ++i) {
    const bool isFirst = window.begin == events.size();
    const u32 state = StateReported(events[i], isFirst);
    if (state == SERVICE_START_PENDING && isFirst) {
      window.begin = i;
      window.threadId = events[i].threadId;
    } else if (events[i].threadId == window.threadId && state == SERVICE_RUNNING) {
      window.end = i;
      window.ended = true;
      break;
    }
  }
  return window;
}

// A callback runs on one thread from its begin to its end, so the next return there is its own.
std::size_t FindReturn(const std::vector<Event>& events, std::size_t begin) {
  for (std::size_t i = begin + 1; i < events.size(); ++i) {
    if (events[i].what == Happening::NoticeEnds && events[i].threadId == events[begin].threadId) {
      return i;
    }
  }
  return events.size();
}

}  // namespace

// Removals are told to the service as well, but it decides nothing by them.
std::vector<Window> FindWindows(const std::vector<Event>& events) {
  std::vector<Window> windows = {FindStartUp(events)};
  for (std::size_t i = 0; i < events.size(); ++i) {
    const Event& event = events[i];
    if (event.what != Happening::NoticeBegins || event.value != 1) {
      continue;
    }
    Window window;
    window.kind =
        event.side == Side::Dfu ? Window::Kind::DfuArrival : Window::Kind::KeyboardArrival;
    window.threadId = event.threadId;
    window.begin = i;
    window.end = FindReturn(events, i);
    window.ended = window.end != events.size();
    windows.push_back(window);
  }
  return windows;
}

}  // namespace proof
