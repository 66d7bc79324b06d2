// Prints the rows of a head as CSV: rows_to_csv [HOST [PORT [ROWS]]]

#include <exception>
#include <iostream>
#include <string>
#include <utility>

#include "client/console.h"

int main(int argc, char** argv) {
  try {
    ConsoleClient head({.host = argc > 1 ? argv[1] : "::1",
                        .port = argc > 2 ? std::stoi(argv[2]) : LineClient::kConsolePort});
    const char* comma = "";
    for (const std::string& name : head.ColumnsOf("DATA")->names)
      std::cout << std::exchange(comma, ",") << name;
    std::cout << "\n";
    for (int left = argc > 3 ? std::stoi(argv[3]) : 100; left > 0; --left) {
      comma = "";
      for (const std::string& field : head.NextData().Fields())
        std::cout << std::exchange(comma, ",") << field;
      std::cout << "\n";
    }
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
