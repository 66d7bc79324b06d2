#include "common/errno_error.h"

#include <cerrno>
#include <cstring>

ErrnoError::ErrnoError(const std::string& message) : ErrnoError(message, errno) {}

ErrnoError::ErrnoError(const std::string& message, int errnum)
    : std::runtime_error(message + ": " + std::strerror(errnum)), number(errnum) {}
