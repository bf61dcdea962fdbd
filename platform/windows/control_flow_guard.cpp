// The image's load configuration, by which Windows learns that indirect calls in it are checked and
// which functions they may reach. The linker fills in the table of these; mingw-w64's C runtime is
// too old to bring the record. For Clang and lld: GCC has no such checks.
#include <windows.h>

#include <cstddef>

namespace {

// As Windows 8.1 has it, the first with the check; the toolchain's declaration ends in front of it.
struct LoadConfiguration {
  IMAGE_LOAD_CONFIG_DIRECTORY64 unguarded;
  const void* checkFunctionPointer;
  const void* dispatchFunctionPointer;
  const void* functionTable;
  const void* functionCount;
  DWORD flags;
};
static_assert(offsetof(LoadConfiguration, checkFunctionPointer) == 0x70);
static_assert(offsetof(LoadConfiguration, flags) == 0x90);

constexpr DWORD SizeForWindows = offsetof(LoadConfiguration, flags) + sizeof(DWORD);
constexpr DWORD Instrumented = 0x100;
constexpr DWORD FunctionTablePresent = 0x400;

// What each indirect call goes through until Windows puts its own check there.
void AllowAnyTarget() {}

}  // namespace

extern "C" {

// Known to the linker; the count is the address itself.
extern const char __guard_fids_table[];
extern const char __guard_fids_count[];

// Known to the compiler.
extern void (*const __guard_check_icall_fptr)();
__attribute__((section(".00cfg"), used)) void (*const __guard_check_icall_fptr)() = AllowAnyTarget;

extern const LoadConfiguration _load_config_used;
__attribute__((used)) const LoadConfiguration _load_config_used = {
    {.Size = SizeForWindows}, &__guard_check_icall_fptr, nullptr,
    __guard_fids_table,       __guard_fids_count,        Instrumented | FunctionTablePresent,
};
}
