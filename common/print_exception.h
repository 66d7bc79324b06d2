#pragma once

// Prints the exception that is being handled as one line on standard output: "ERROR: " and its
// text, or "ERROR" if it has none. Call it inside a catch block.
void PrintCurrentException();
