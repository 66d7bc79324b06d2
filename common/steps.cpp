#include "common/steps.h"

#include "common/print_exception.h"

void Steps::KeepFailure() {
  if (first)
    PrintCurrentException();
  else
    first = std::current_exception();
}

void Steps::ThrowFirstFailure() const {
  if (first) std::rethrow_exception(first);
}
