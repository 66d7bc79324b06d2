#include "leaf/lumet/console/console_delivery.h"

#include <algorithm>

void ConsoleDelivery::SendToClient(SocketClient* client, std::string_view text, std::size_t limit) {
  if (client != nullptr && client->Backlog() < limit) client->Send(text);
}

void ConsoleDelivery::SendToAll(std::string_view text, std::size_t limit) {
  server.SendToAll(text, limit);
}

bool ConsoleDelivery::Wants(const SocketClient& client, LumetSocketContext::Output output) {
  const auto* context = dynamic_cast<LumetSocketContext*>(client.GetContext().get());
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
