#include "platform/machine/fiber.h"

#include <sys/mman.h>
#include <ucontext.h>

#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

namespace platform {

namespace {

// As large as Windows makes a thread's. Nobody may touch the lowest page: whoever runs over the end
// of its stack ends the process, and does not write into another's.
constexpr std::size_t StackBytes = 1024 * 1024;
constexpr std::size_t GuardBytes = 4096;

// Pages that have been used cost less than new ones.
thread_local std::vector<void*> freeStacks;

// makecontext hands nothing but integers to the function that it starts.
thread_local Fiber* handedTo = nullptr;

void* TakeStack() {
  if (!freeStacks.empty()) {
    void* const stack = freeStacks.back();
    freeStacks.pop_back();
    return stack;
  }
  void* const stack = mmap(nullptr, StackBytes, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (stack == MAP_FAILED || mprotect(stack, GuardBytes, PROT_NONE) != 0) {
    std::perror("no memory for a thread's stack");
    std::_Exit(3);
  }
  return stack;
}

}  // namespace

struct Fiber::Context {
  ucontext_t registers;
};

Fiber::Fiber() : context_(new Context()) {}

Fiber::~Fiber() {
  if (stack_ != nullptr) {
    freeStacks.push_back(stack_);
  }
}

void Fiber::Start(std::function<void()> body) {
  body_ = std::move(body);
  stack_ = TakeStack();
  ucontext_t& registers = context_->registers;
  getcontext(&registers);
  registers.uc_stack.ss_sp = stack_;
  registers.uc_stack.ss_size = StackBytes;
  makecontext(&registers, &Fiber::Main, 0);
}

void Fiber::SwitchTo(Fiber& next) {
  handedTo = &next;
  swapcontext(&context_->registers, &next.context_->registers);
}

void Fiber::Main() {
  handedTo->body_();
}

}  // namespace platform
