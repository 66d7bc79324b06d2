#include "leaf/lumet/bus/announcement.h"

#include "common/test_registry.h"

using namespace self_test;

// Of all services around, the head follows that of its own console unit alone.
void AnnouncementCases() {
  const struct {
    const char* address;
    TxtMap txt;
    const char* broker;
  } rows[] = {
      {"fe80::b", {{"chamber", "tvf-0042"}}, "fe80::b%eth0"},
      {"fe80::b", {{"chamber", "TVF-0043"}}, ""},
      {"fe80::b", {{"model", "TVF-0042"}}, ""},
      {"2001:db8::b", {{"chamber", "TVF-0042"}}, ""},
      {"169.254.0.7", {{"chamber", "TVF-0042"}}, ""},
  };
  for (const auto& row : rows)
    ExpectEqual(BrokerOfOwnConsoleUnit(SocketAddress(row.address), row.txt, "TVF-0042", "eth0")
                    .value_or(""),
                row.broker, row.address);
}
