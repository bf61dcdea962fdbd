// What -fstack-protector calls with Clang: GCC has libssp for it, the ARM64 toolchain has nothing.
#define _CRT_RAND_S
#include <cstdint>
#include <cstdlib>

extern "C" {

// The value between a function's arrays and its return address. Written once, before main, while
// the process has one thread; until then it is what a failing system leaves it.
std::uintptr_t __stack_chk_guard = 0x595E9FBD94FDA700;

[[noreturn]] void __stack_chk_fail();
}

namespace {

// Not protected itself, since the value changes under it.
__attribute__((constructor, no_stack_protector)) void DrawStackGuard() {
  unsigned int high = 0;
  unsigned int low = 0;
  if (rand_s(&high) == 0 && rand_s(&low) == 0) {
    // Its lowest byte stays 0, which no string is copied across.
    __stack_chk_guard = (std::uintptr_t{high} << 32 | low) & ~std::uintptr_t{0xFF};
  }
}

}  // namespace

// The stack cannot be trusted any more: no handler runs and nothing returns.
void __stack_chk_fail() {
  constexpr unsigned int StackCookieCheckFailure = 2;
#if defined(__aarch64__)
  register unsigned int code asm("w0") = StackCookieCheckFailure;
  asm volatile("brk #0xF003" : : "r"(code));
#else
  asm volatile("int $0x29" : : "c"(StackCookieCheckFailure));
#endif
  __builtin_unreachable();
}
