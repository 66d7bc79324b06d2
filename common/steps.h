#pragma once

#include <exception>

// Carries out steps of which each is to run even if one before it failed. The first failure is kept
// for ThrowFirstFailure; further ones are lines on standard output.
class Steps {
 public:
  template <class Step>
  void Run(Step step) {
    try {
      step();
    } catch (...) {
      KeepFailure();
    }
  }
  // Call it after the last step. Throws what the first failed step has thrown, if any has failed.
  void ThrowFirstFailure() const;

 private:
  void KeepFailure();

  std::exception_ptr first;
};
