#include "liborrel/ptp_config.h"

#include <fstream>
#include <utility>
#include <vector>

#include "common/privilege_guard.h"
#include "common/safe_file.h"

namespace {

const std::string kOptions = "PTPD_OPTS";

bool Holds(const std::string& line, const std::string& part) {
  return line.find(part) != std::string::npos;
}

}  // namespace

ServiceControl::ServiceControl(std::string script_path, const Machine& machine)
    : path(std::move(script_path)), machine(machine) {}

void ServiceControl::Run(const std::string& word) {
  const PrivilegeGuard rights(machine);
  machine.run_command(path + " " + word);
}

PtpConfig::PtpConfig(std::string options_path, std::string script_path, const Machine& machine)
    : path(std::move(options_path)), machine(machine), script(std::move(script_path), machine) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(kOptions)) continue;
    if (Holds(line, "-g"))
      mode = kSlaveOnly;
    else if (Holds(line, "-p"))
      mode = kPreferred;
  }
}

void PtpConfig::Set(int wanted) {
  if (wanted == mode) return;
  write(wanted);
  script.restart();
}

void PtpConfig::SaveAgain() {
  if (!unsaved) return;
  write(mode);
  if (!unsaved) script.restart();
}

void PtpConfig::write(int wanted) {
  mode = wanted;
  unsaved = true;
  std::ifstream old_file(path);
  const PrivilegeGuard rights(machine);
  unsaved = !ReplaceFile(path, [&](std::ostream& out) {
    for (std::string line; std::getline(old_file, line);)
      if (!Holds(line, kOptions)) out << line << "\n";
    if (mode == kPreferred) out << kOptions << "=-p\n";
    if (mode == kSlaveOnly) out << kOptions << "=-g\n";
  });
}
