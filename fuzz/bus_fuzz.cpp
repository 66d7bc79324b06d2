// Whatever the bus brings, the head goes on; and a document does from there what it does from a
// client.
//
// Each message is a topic, a line feed, and the payload up to a form feed.

#include "fuzz/fuzz_head.h"

namespace {

// But for the switches of the client who spoke last.
std::string WithoutOutputs(std::string settings) {
  const std::size_t begin = settings.find("<output>");
  const std::size_t end = settings.find("</output>");
  return end == std::string::npos ? settings : settings.erase(begin, end - begin);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string kUpdate = "nemra/tavo/xml/update";
  FuzzHead by_bus;
  FuzzHead by_console;
  FuzzHead::Client client(by_console);
  bool comparable = true;
  for (const std::string& message : Pieces(data, size, 16, '\f')) {
    const std::size_t feed = message.find('\n');
    const std::string topic = message.substr(0, feed);
    const std::string payload = feed == std::string::npos ? "" : message.substr(feed + 1);
    if (topic.starts_with("nemra/system/") || message.find("reboot") != std::string::npos) continue;
    by_bus.Publish(topic, payload);
    if (topic.substr(0, topic.rfind('/')) != "nemra/tavo/xml") continue;
    // What a client can't say in one line, or would be taken as something else.
    comparable = comparable && payload.starts_with('<') &&
                 payload.find('\n') == std::string::npos &&
                 payload.find("&query_changes") == std::string::npos;
    if (comparable) client.Send(payload + "\n");
  }
  if (comparable)
    Check(ComesOutTheSame(by_bus, by_console, [&](int i) {
      FuzzHead& head = i == 0 ? by_bus : by_console;
      return head.Commands() + WithoutOutputs(head.Saved());
    }));
  return 0;
}
