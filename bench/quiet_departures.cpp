#include "bench/quiet_departures.h"

#include <iostream>
#include <string_view>

namespace {

bool IsDeparture(std::string_view line) {
  return line.starts_with("SocketClient::Handle") &&
         (line.ends_with("HandleError()\n") || line.ends_with("HandleHangUp()\n") ||
          line.ends_with(": Broken pipe\n") || line.ends_with(": Connection reset by peer\n"));
}

}  // namespace

QuietDepartures::QuietDepartures() : log(std::cout.rdbuf(this)) {}

QuietDepartures::~QuietDepartures() {
  // Otherwise the log has ended before.
  if (std::cout.rdbuf() == this) std::cout.rdbuf(log);
}

QuietDepartures::int_type QuietDepartures::overflow(int_type byte) {
  if (traits_type::eq_int_type(byte, traits_type::eof())) return traits_type::not_eof(byte);
  const char letter = traits_type::to_char_type(byte);
  xsputn(&letter, 1);
  return byte;
}

std::streamsize QuietDepartures::xsputn(const char* text, std::streamsize length) {
  std::string_view rest(text, static_cast<std::size_t>(length));
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    line += rest.substr(0, end == std::string_view::npos ? end : end + 1);
    if (end == std::string_view::npos) break;
    rest.remove_prefix(end + 1);
    if (!IsDeparture(line)) log->sputn(line.data(), static_cast<std::streamsize>(line.size()));
    line.clear();
  }
  return length;
}

int QuietDepartures::sync() { return log->pubsync(); }
