#include "bench/bench_page.h"

#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>

#include "common/host_port.h"

void BenchPage::Start(const Instrument& instrument, int console_port) {
  const std::filesystem::path program =
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "lumet-view";
  if (!std::filesystem::exists(program))
    throw std::runtime_error("there is no " + program.string() +
                             "; ./dev bench --view builds and starts it");
  view.emplace(std::vector<std::string>{program, "--head",
                                        Place(instrument.console_address, console_port), "--broker",
                                        Place(instrument.broker_address, instrument.broker_port)});
  std::cout << view->WaitForOutput(" in a browser\n");
}
