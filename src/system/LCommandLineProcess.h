// Runs commands through the shell.
#pragma once

// Runs the command as the system's shell does and waits for its end. True only when the shell ended by itself with exit
// code 0; false for null. The command starts with default signals, whatever this process ignores or blocks. Where
// SIGCHLD is ignored nobody learns how it ended: false. Any thread.
bool RunCommandLineProcess(const char* command);
// The same with other variables in the command's environment: texts "NAME=value", ended by null; an empty value takes
// the variable out.
bool RunCommandLineProcess(const char* command, const char* const* variables);
