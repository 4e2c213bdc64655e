#pragma once

namespace zo_base {

// A child that is forked off has none of the library's threads, and finds its locks as they were at
// that moment.
//
// While the library is at work, from the start sequence to the end of the exit, that can't be
// mended: there the child's library is dead. Its functions return 0 or null, nothing is logged, and
// no lock is taken at the end of the process. At other times the child may use it: all process-wide
// state that another thread may just have had in hand begins anew there.

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
