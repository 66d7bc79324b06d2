#include "liborrel/doctavo/tavo_choices.h"

#include <array>
#include <vector>

namespace {

using Choices = std::vector<std::string>;

constexpr std::array<std::uint32_t, 17> kModulationRates = {
    1, 2, 5, 10, 20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000, 50000, 125000, 250000};

Choices* ModulationRates() {
  static Choices choices = [] {
    Choices texts;
    for (const std::uint32_t rate : kModulationRates) texts.push_back(std::to_string(rate));
    return texts;
  }();
  return &choices;
}

}  // namespace

ConfigModRate::ConfigModRate(const std::string& name, int default_index)
    : ConfigurableMultipleChoice(name, ModulationRates(), default_index) {}

std::uint32_t ConfigModRate::Hz() const {
  return kModulationRates[static_cast<std::size_t>(get())];
}
