// Sets the light, runs a saturating flash, and prints F, Fm' and the yield of photosystem II:
// light_and_flash [HOST [PORT [FLUX]]], with FLUX in µmol/m²/s

#include <algorithm>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "client/console.h"

int main(int argc, char** argv) {
  try {
    ConsoleClient head({.host = argc > 1 ? argv[1] : "::1",
                        .port = argc > 2 ? std::stoi(argv[2]) : LineClient::kConsolePort});
    head.Set("cfg/lightsource/control", "setpoint");
    head.Set("cfg/lightsource/Q_setpoint", argc > 3 ? argv[3] : "200");
    for (int i = 0; i < 25; ++i) head.NextData();
    double f = 0;
    for (int i = 0; i < 5; ++i) f += head.NextData()["LUMET"] / 5;

    head.Set("cmd/rect", "true");
    std::vector<double> flash;
    for (DataRow row = head.NextData(); flash.empty() || row["CODE"] == 3; row = head.NextData())
      if (row["CODE"] == 3) flash.push_back(row["LUMET"]);
    // The light settles in the first five.
    const double fm = flash.size() > 5 ? *std::max_element(flash.begin() + 5, flash.end()) : 0;
    std::cout << "F " << f << "\nFm' " << fm << "\nPhiPSII " << 1 - f / fm << "\n";
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
