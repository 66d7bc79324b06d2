#include "common/print_exception.h"

#include <exception>
#include <iostream>

void PrintCurrentException() {
  try {
    throw;
  } catch (const std::exception& error) {
    std::cout << "ERROR: " << error.what() << "\n";
  } catch (const char* error) {
    std::cout << "ERROR: " << error << "\n";
  } catch (...) {
    std::cout << "ERROR\n";
  }
}
