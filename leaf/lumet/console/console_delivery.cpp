#include "leaf/lumet/console/console_delivery.h"

#include <algorithm>
#include <iostream>

#include "leaf/lumet/bounds.h"

void ConsoleDelivery::SendToClient(SocketClient* client, std::string_view text, std::size_t limit) {
  if (client == nullptr || client->Backlog() >= limit) return;
  if (queued + text.size() > bounds::kQueuedInAll && text.size() > Room(*client)) return;
  client->Send(text);
  queued += text.size();
}

std::size_t ConsoleDelivery::Room(const SocketClient& client) {
  const auto left = [](std::size_t bound, std::size_t used) {
    return bound - std::min(bound, used);
  };
  if (queued > bounds::kQueuedInAll / 2) {
    queued = 0;
    for (const auto& each : server.Clients()) queued += each->QueueMemory();
    const bool full = queued > bounds::kQueuedInAll / 2;
    if (full && !crowded)
      std::cout << "Console: much waits for clients that are behind; they may lose rows\n";
    crowded = full;
  }
  return std::max(left(bounds::kQueuedInAll, queued), left(bounds::kQueuedShare, client.Backlog()));
}

void ConsoleDelivery::SendLast(SocketClient* client, std::string_view text) {
  client->Send(text);
  client->HandleWrite();
}

void ConsoleDelivery::SendToAll(std::string_view text, std::size_t limit) {
  server.SendToAll(text, limit);
}

bool ConsoleDelivery::Wants(const SocketClient& client, LumetSocketContext::Output output) {
  const LumetSocketContext* context = LumetSocketContext::Of(client);
  return client.IsOpen() && context != nullptr && (context->outputFlags & output) != 0;
}

bool ConsoleDelivery::AnyoneWants(LumetSocketContext::Output output) const {
  return std::any_of(server.Clients().begin(), server.Clients().end(),
                     [output](const auto& client) { return Wants(*client, output); });
}

void ConsoleDelivery::SendToFlagged(std::string_view text, LumetSocketContext::Output output,
                                    std::size_t limit) {
  for (const auto& client : server.Clients())
    if (Wants(*client, output)) SendToClient(client.get(), text, limit);
}
