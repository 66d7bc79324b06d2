#pragma once

#include <chrono>
#include <string>

// Sends the service manager that started this process a state, such as "READY=1", in the words of
// sd_notify(3). Without a service manager, or in a build without its library, does nothing.
void TellServiceManager(const std::string& state);

// How long this process may be silent before its service manager takes it for dead; zero if it is
// not watched.
std::chrono::microseconds WatchdogTime();
