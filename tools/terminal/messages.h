#pragma once

#include <CLI/CLI.hpp>
#include <string>

// What the tools say to their user. Names and arguments may hold control bytes, which would reach
// the terminal: they are escaped.
//
// Threads: any.
namespace tarvel_terminal {

// Returns `text` with its control bytes as "\x1b".
std::string Printable(const std::string& text);

// Writes "PROGRAM: MESSAGE" to standard error.
void WriteError(const std::string& message);

// Ends a program whose command line asks for help or is wrong: writes the help, or the error.
// Returns the exit status, 0 or 2.
int EndParsing(const CLI::App& app, const CLI::ParseError& error);

}  // namespace tarvel_terminal
