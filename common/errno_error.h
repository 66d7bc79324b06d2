#pragma once

#include <stdexcept>
#include <string>

// A failed system call. The text is the caller's message, ": " and strerror.
class ErrnoError : public std::runtime_error {
 public:
  // Reads errno at this moment.
  explicit ErrnoError(const std::string& message);
  ErrnoError(const std::string& message, int errnum);

  int ErrorNumber() const { return number; }

 private:
  int number;
};
