// A flow of control with a stack of its own, which runs when another one of the same host thread
// hands over to it: what a thread is, without the host's scheduler. POSIX contexts (ucontext.h).
#pragma once

#include <functional>
#include <memory>

namespace platform {

// The sanitizers take a stack that the host did not make for a wild one.
#ifdef VANTREL_SANITIZED
inline constexpr bool FibersWork = false;
#else
inline constexpr bool FibersWork = true;
#endif

// Until it is started it stands for the flow that runs already.
class Fiber {
 public:
  Fiber();
  // Leaves the stack to the next fiber. What its frames own is not destroyed.
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  // Makes it ready to run body, which must not return: at its end it hands over and is never handed
  // back to. Ends the process when there is no memory for a stack.
  void Start(std::function<void()> body);

  // To be called by the one that runs. Comes back when another hands over to it.
  void SwitchTo(Fiber& next);

 private:
  struct Context;  // the registers, while it does not run
  static void Main();

  std::unique_ptr<Context> context_;
  std::function<void()> body_;
  void* stack_ = nullptr;
};

}  // namespace platform
