#pragma once

#include <iterator>
#include <string>
#include <vector>

#include "configurable/configbuiltin.h"

// A choice whose texts are in its class, beside the enumerators that are their indexes. All items
// of one kind share the list.
//
//   class ConfigFanMode : public ConfigurableChoice<ConfigFanMode> {
//    public:
//     enum Choice { Off, Auto, Percent };
//     static constexpr const char* kChoices[] = {"off", "auto", "percent"};
//     using ConfigurableChoice::ConfigurableChoice;
//   };
template <class Kind>
class ConfigurableChoice : public ConfigurableMultipleChoice {
 public:
  ConfigurableChoice(const std::string& name, int default_index)
      : ConfigurableMultipleChoice(name, SharedChoices(), default_index) {}

 private:
  static std::vector<std::string>* SharedChoices() {
    static std::vector<std::string> choices(std::begin(Kind::kChoices), std::end(Kind::kChoices));
    return &choices;
  }
};
