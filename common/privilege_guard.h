#pragma once

#include <sys/types.h>

#include "common/machine.h"

// Takes super user rights for the duration of a scope, which must do nothing but what needs them.
class PrivilegeGuard {
 public:
  // `machine` must outlive this. Throws std::runtime_error, the text below and the reason.
  // Protocol: "Unable to gain super user priviledges: " is spelled so.
  explicit PrivilegeGuard(const Machine& machine);
  ~PrivilegeGuard();
  PrivilegeGuard(const PrivilegeGuard&) = delete;
  PrivilegeGuard& operator=(const PrivilegeGuard&) = delete;

 private:
  const Machine& machine;
  uid_t before;
};
