// A session of three clients: whatever their lines are, and wherever reads have cut them, they get
// the same answers, and the processor the same commands.
//
// The bytes 1 to 3 choose the client who sends what follows. After byte 4, the processor sends a
// sample; after byte 5, it answers a read of the register that the next byte names.

#include <ctime>

#include "fuzz/fuzz_head.h"

namespace {

struct Session {
  FuzzHead head;
  std::array<FuzzHead::Client, 3> clients = {FuzzHead::Client(head), FuzzHead::Client(head),
                                             FuzzHead::Client(head)};
};

void Play(FuzzHead& head, char act, char argument) {
  RecordWriter records;
  WireSample sample;
  sample.dc = static_cast<float>(argument);
  sample.code = 1;
  if (act == 4)
    records.Sample({1'700'000'000, 0}, sample);
  else
    records.RegisterRecord({}, DSPCode::RegisterValueRecord, static_cast<std::uint8_t>(argument),
                           static_cast<std::uint8_t>(~argument));
  head.Send(records.packets.front());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (text.find("reboot") != std::string::npos) return 0;
  Session whole;
  Session parts;
  const std::time_t begin = std::time(nullptr);
  std::size_t client = 0;
  for (std::size_t at = 0; at < text.size();) {
    const char first = text[at];
    if (first >= 1 && first <= 5) {
      ++at;
      if (first <= 3) {
        client = static_cast<std::size_t>(first - 1);
      } else {
        const char argument = at < text.size() ? text[at] : '\0';
        for (Session* session : {&whole, &parts}) Play(session->head, first, argument);
      }
      continue;
    }
    const std::size_t end = std::min(text.find_first_of("\1\2\3\4\5", at), text.size());
    const std::string_view said = std::string_view(text).substr(at, end - at);
    whole.clients[client].Send(said);
    ForEachPart(said, [&](std::string_view part) { parts.clients[client].Send(part); });
    at = end;
  }
  const std::array sessions = {&whole, &parts};
  const bool same = ComesOutTheSame(whole.head, parts.head, [&](int i) {
    std::string all = sessions[static_cast<std::size_t>(i)]->head.Commands();
    for (auto& one : sessions[static_cast<std::size_t>(i)]->clients) all += "\f" + one.Heard();
    return all;
  });
  // Answers tell the time.
  Check(same || std::time(nullptr) - begin > 2);
  return 0;
}
