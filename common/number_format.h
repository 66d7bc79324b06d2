#pragma once

// Numbers as the C library's printf writes them, to the byte, for the few forms that rows and
// settings use, at a tenth of the cost. Each writes to `to`, which must have room, and returns the
// end of what it wrote.

// As "%g", six significant digits. At most 13 characters.
char* PutGeneral(char* to, double value);
// As "%.6f". At most 318 characters.
char* PutFixed6(char* to, double value);
// As "%u". At most 10 characters.
char* PutUnsigned(char* to, unsigned value);
