// What becomes of a thread that is ended in the middle of a call of ours.
//
// While the interpreter shuts down, a daemon thread that asks for its lock is ended with
// pthread_exit. The C library does that by a forced unwinding, which runs the destructors and the
// handlers of every C++ frame on the way: each Ref would give back a reference without the lock,
// under the feet of the thread that tears everything down, and a handler that does not throw on
// aborts the process. A handler at the edge would come too late, after the inner frames. So the
// unwinding stops before the innermost of them: the unwinder asks a frame's personality routine
// before it touches the frame, the linker puts those below in the places of the libraries'
// (CMakeLists.txt), and the thread sleeps until the process is gone.
#ifdef __linux__

#include <unistd.h>
#include <unwind.h>

namespace {

[[noreturn]] void sleep_until_the_process_ends() {
  for (;;) pause();
}

}  // namespace

#define PERSONALITY_PARAMETERS                                                  \
  int version, _Unwind_Action actions, _Unwind_Exception_Class exception_class, \
      _Unwind_Exception *exception, _Unwind_Context *context

// Defines what stands in for a personality routine; the linker has the two names from --wrap.
#define STAND_IN(routine)                                                           \
  _Unwind_Reason_Code __real_##routine(PERSONALITY_PARAMETERS);                     \
  [[gnu::used]] _Unwind_Reason_Code __wrap_##routine(PERSONALITY_PARAMETERS) {      \
    if ((actions & _UA_FORCE_UNWIND) != 0) sleep_until_the_process_ends();          \
    return __real_##routine(version, actions, exception_class, exception, context); \
  }

extern "C" {
STAND_IN(__gxx_personality_v0)
// Link-time optimisation gives this one to frames that have destructors and no handlers.
STAND_IN(__gcc_personality_v0)
}

#endif
