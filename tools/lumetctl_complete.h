#pragma once

#include <string>
#include <vector>

#include "tools/lumetctl.h"

// For the completion of shells.

// A command of the program, and its options.
struct CommandWords {
  struct Option {
    std::vector<std::string> names;  // such as "--columns"
    bool takes_value = false;
  };

  std::string name;
  std::vector<Option> options;
};

// What the last of `words` may become, a line each; the words are those after the program's name.
// Asks the head for paths, choices and columns; returns nothing if it does not answer at once, or
// if the name of a file is wanted. `commands` begins with the program itself.
std::vector<std::string> Candidates(const std::vector<CommandWords>& commands,
                                    const std::vector<std::string>& words);
