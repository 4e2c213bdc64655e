#pragma once

namespace zo_base {

// A forked child has none of the library's threads and may inherit locked mutexes.
//
// If the library is at work at the fork, from the start sequence to the end of the exit, it is
// disabled in the child: exports return 0 or null, nothing is logged, and exit handlers take no
// lock. If it isn't, the child may use it: all process-wide state that another thread may just have
// been changing is initialised again there.

// Says whether the library is at work.
void SetAtWork(bool at_work);

// Whether the library is dead in this process. Takes no lock.
bool InForkedChild();

// Makes the library dead in this process as well: for a process that ends in the middle of the
// client's log function, with locks held that the end of the environment would wait for.
void ActAsForkedChild();

// Has `renew` called in each child that may use the library, before fork() returns there. It must
// take no lock that another thread can hold. Called while the image is loaded, or while the library
// is at work.
void OnForkedChild(void (*renew)());

}  // namespace zo_base
