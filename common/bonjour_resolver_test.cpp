#include "common/bonjour_resolver.h"

#include <cstddef>

#include "common/test_registry.h"

using namespace self_test;

void BonjourResolverCases() {
  BonjourResolver services;
  services.ServiceFound("Unit", "_a._tcp", "local", 2, "unit.local", SocketAddress("10.0.0.1"),
                        {{"a", "1"}});
  const auto unit = services.Find("Unit");
  services.ServiceFound("Unit", "_a._tcp", "local", 2, "unit.local", SocketAddress("fe80::b"),
                        {{"a", "2"}});
  services.ServiceFound("Unit", "_a._tcp", "local", 2, "unit.local", SocketAddress("10.0.0.1"),
                        {{"a", "2"}});
  ExpectEqual(unit->addresses.size(), std::size_t{2});
  ExpectEqual(unit->txt.at("a"), "2");
  services.ServiceRemoved("Unit", "_a._tcp", "local");
  ExpectTrue(services.Find("Unit") == nullptr && unit->host_name == "unit.local", "removed");
}
