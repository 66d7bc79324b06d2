#pragma once

#include <string>

// Runs a command as system(3) does and returns what that returns. The command gets standard input,
// output and error, and no other descriptor of this process; its signals have their default actions
// and none is blocked. The first 64 KiB of what it prints are printed to std::cout when it has
// ended.
int RunCommand(const std::string& command);

// Marks every descriptor that is open now, except these three, to be closed in programs that this
// process starts: what libraries have opened, and what whoever started this process has left open.
void KeepDescriptorsFromChildren();
