#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "common/machine.h"
#include "common/poll_processor.h"
#include "common/socket.h"

// Watches the kernel's routes, and removes the IPv4 route that catches all traffic without a
// gateway, which some configurations leave behind. Such a route has a metric; it is removed a while
// after it appears.
class RestoreNetworkSanity : public PollItem, public PollTimer {
 public:
  // Removes such a route at once if there is one with the metric that such routes usually have.
  // Throws ErrnoError when routes can't be watched. `machine` must outlive this.
  explicit RestoreNetworkSanity(const Machine& machine);

  int GetFD() override { return socket.GetFD(); }
  void HandleRead() override;
  void Expired() override;
  const char* GetName() override { return "RestoreNetworkSanity"; }

 private:
  void HandleMessage(std::span<const std::uint8_t> message);
  void DeleteRoute();

  const Machine& machine;
  Socket socket;
  std::vector<std::uint8_t> buffer;
  std::uint32_t zeroRouteMetric;  // of the route to remove; 0: there is nothing to do
};
