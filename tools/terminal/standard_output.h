#pragma once

#include <string_view>

// Standard output of a tool. All of it passes through WriteOutput, which keeps the first failure
// for the exit status.
//
// Threads: any.
namespace tarvel_terminal {

// Opens /dev/null in place of each standard descriptor that is closed: a file or socket that got
// the number of standard output would be overwritten with the tool's output. Call it first.
void ReserveStandardDescriptors();

// Writes all of `text`; the texts of two threads never mix. Returns false when this or an earlier
// write has failed. A tool that has blocked SIGINT, SIGTERM or SIGHUP stops writing when the reader
// doesn't read and such a signal is pending.
bool WriteOutput(std::string_view text);

// Returns the exit status of a tool that would end with `status`. When output is lost, standard
// error says why, and the status is 1. A closed pipe is no error: its reader has seen enough. Then
// the status is that of a program that SIGPIPE ended.
[[nodiscard]] int StatusWithOutput(int status);

}  // namespace tarvel_terminal
