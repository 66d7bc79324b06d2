#include "common/bonjour_client.h"

#include <cstdlib>

#include "common/test_registry.h"

using namespace self_test;

// No daemon is reached where there is no bus.
void BonjourClientCases() {
  struct Errors : BonjourClientListener {
    void GotError(const std::string& text) override { log += text; }
    std::string log;
  } errors;
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1);
  BonjourClient bonjour(errors);
  bonjour.Browse("_a._tcp");
  bonjour.Restart();
  bonjour.Publish("a", "_a._tcp", "local", 1, {{"key", "value"}});
  bonjour.Browse("_a._tcp");
  ExpectEqual(errors.log, "Unable to create Avahi client\n");
}
