#pragma once

#include <sys/types.h>

#include "common/platform.h"

// Takes super user rights for the length of a scope, which must do nothing but what needs them.
class PrivilegeGuard {
 public:
  // Throws std::runtime_error "Unable to gain super user priviledges: " and the reason.
  explicit PrivilegeGuard(const Platform& where);
  ~PrivilegeGuard();
  PrivilegeGuard(const PrivilegeGuard&) = delete;
  PrivilegeGuard& operator=(const PrivilegeGuard&) = delete;

 private:
  const Platform& platform;
  uid_t before;
};
