// glibc's `__libc_single_threaded` flag, defined inside the module.
//
// The release module links the C++ runtime statically (CMakeLists.txt) so
// that it loads on hosts with glibc 2.17 and an old libstdc++.  Built against
// glibc 2.32 or later, that runtime (and the inline atomics of its headers)
// reads `__libc_single_threaded`, a variable glibc only exports since 2.32
// (GLIBC_2.32): left to glibc, the reference alone keeps the module from
// loading on older hosts.  Defined here, hidden, the references bind inside
// the module and the flag always says "may be multi-threaded", so reference
// counts stay atomic: the behaviour of every glibc before 2.32.
#include <features.h>

#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 32))
extern "C" {
__attribute__((visibility("hidden"))) char orvex_raid_libc_single_threaded __asm__(
    "__libc_single_threaded") = 0;
}
#endif
