#pragma once

#include <sys/types.h>

#include "common/machine.h"

// Takes super user rights for the length of a scope, which must do nothing but what needs them.
class PrivilegeGuard {
 public:
  // `machine` must outlive this. Throws std::runtime_error "Unable to gain super user priviledges:
  // " and the reason.
  explicit PrivilegeGuard(const Machine& machine);
  ~PrivilegeGuard();
  PrivilegeGuard(const PrivilegeGuard&) = delete;
  PrivilegeGuard& operator=(const PrivilegeGuard&) = delete;

 private:
  const Machine& machine;
  uid_t before;
};
