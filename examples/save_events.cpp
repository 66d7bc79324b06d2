// Saves the record of each flash and dark pulse that heads publish, a file each:
// save_events [HOST [PORT [COUNT]]]

#include <exception>
#include <fstream>
#include <iostream>
#include <string>

#include "client/bus.h"

int main(int argc, char** argv) {
  try {
    BusClient bus({.host = argc > 1 ? argv[1] : "::1",
                   .port = argc > 2 ? std::stoi(argv[2]) : 1883,
                   .topics = {bus_topic::kFlash, bus_topic::kDark},
                   .timeout = kNoLimit});
    std::cout << "waiting for events" << std::endl;
    for (int left = argc > 3 ? std::stoi(argv[3]) : 1; left > 0; --left) {
      const BusMessage message = bus.Next();
      const EventRecord event = message.Event();
      const std::string path = event.device + "-" + std::to_string(event.id) + ".json";
      std::ofstream(path) << message.payload;
      std::cout << path << " " << event.type << std::endl;
    }
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
