#include "common/host_name.h"

#include <unistd.h>

#include <array>

std::string GetHostName() {
  std::array<char, 128> name = {};
  if (gethostname(name.data(), name.size()) != 0) return "";
  name.back() = '\0';
  return name.data();
}
