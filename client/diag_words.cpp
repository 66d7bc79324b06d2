#include "client/diag_words.h"

#include <map>

std::string DiagInWords(const std::string& bit) {
  static const std::map<std::string, std::string> kWords = {
      {"CONSOLECONNECTED", "a client is the console"},
      {"PARSATURATED", "the light sensor is saturated"},
      {"DCSATURATED", "the fluorescence detector is saturated"},
      {"TEMP_WARNING", "warm: 70 °C or more"},
      {"REDMODOFF", "the measuring light is off by command (cmd/redmodon)"},
      {"TESTMODEON", "the test vector is on (cmd/testvectoff)"},
      {"TEMP_FAULT",
       "too hot: 75 °C was reached and the light went off; "
       "set cfg/measure/control and cfg/lightsource/control again after it has cooled"}};
  const auto found = kWords.find(bit);
  return found == kWords.end() ? bit : bit + ", " + found->second;
}
