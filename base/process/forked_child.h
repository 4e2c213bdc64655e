#pragma once

#include <sys/types.h>

namespace zo_base {

// A forked child has none of the library's threads and may inherit locked mutexes.
//
// If the library is at work at the fork, from the start sequence to the end of the exit, it is
// disabled in the child: exports return 0 or null, nothing is logged, and exit handlers take no
// lock. Otherwise the child may use it: process-wide state that another thread may have been
// changing is initialised again.

// Says whether the library is at work.
void SetAtWork(bool at_work);

// Whether the library is disabled in this process. Takes no lock.
bool InForkedChild();

// The id of this process, without a system call. In a child that was forked without its handlers,
// as by _Fork(), it is that of the parent.
pid_t ProcessId();

// Disables the library in this process as well: for one that ends in the middle of the client's log
// function, with locks held for which the end of the environment would wait.
void ActAsForkedChild();

// Registers `renew` to be called in each child that may use the library, before fork() returns. It
// must take no lock that another thread can hold. Call this while the image is loaded, or while the
// library is at work.
void OnForkedChild(void (*renew)());

}  // namespace zo_base
