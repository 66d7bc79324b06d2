#include "leaf/lumet/console_delivery.h"

void ConsoleDelivery::SendToClient(SocketClient* client, std::string_view text, std::size_t limit) {
  if (client != nullptr && client->Backlog() < limit) client->Send(text);
}

void ConsoleDelivery::SendToAll(std::string_view text, std::size_t limit) {
  for (const auto& client : server.Clients()) SendToClient(client.get(), text, limit);
}

void ConsoleDelivery::SendToFlagged(std::string_view text, LumetSocketContext::Output output,
                                    std::size_t limit) {
  for (const auto& client : server.Clients()) {
    const auto* context = dynamic_cast<LumetSocketContext*>(client->GetContext().get());
    if (context != nullptr && (context->outputFlags & output) != 0)
      SendToClient(client.get(), text, limit);
  }
}
