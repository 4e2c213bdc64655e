#pragma once

namespace zo_base {

// A child that is forked off while the library is at work has none of its threads, and finds its
// locks as they were at that moment. So there the library is dead: it answers as after an unload,
// logs nothing, and takes no lock at the end of the process. A child that is forked off before may
// use it.

// Says whether the library is at work, from the start sequence to the end of the exit.
void SetAtWork(bool at_work);

// Whether this process is such a child. Takes no lock.
bool InForkedChild();

}  // namespace zo_base
