#pragma once

// Starts an environment with a service whose thread tells when it begins and ends, and ends the way
// that `ending` names. Tells each step in one line on standard output.
extern "C" __attribute__((visibility("default"))) void RunClient(const char* ending);
