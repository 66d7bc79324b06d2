#include "common/privilege_guard.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

PrivilegeGuard::PrivilegeGuard(const Machine& machine) : machine(machine), before(geteuid()) {
  if (machine.set_effective_user(0) != 0)
    throw std::runtime_error(std::string("Unable to gain super user priviledges: ") +
                             std::strerror(errno));
}

PrivilegeGuard::~PrivilegeGuard() { machine.set_effective_user(before); }
