#include "leaf/lumet/link/dsp_device.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <stdexcept>
#include <vector>

#include "common/stream_file.h"
#include "common/temporary_directory.h"
#include "common/test_registry.h"

namespace {

using namespace self_test;

std::string Number(std::uint64_t value, std::size_t size) {
  std::string bytes;
  for (; size > 0; --size, value >>= 8) bytes += static_cast<char>(value & 0xFF);
  return bytes;
}

// A record with its payload padded, stamped `seconds`.
std::string Record(unsigned code, const std::string& payload, unsigned seconds = 0) {
  std::string record = Number(seconds, 4) + Number(0, 4) + Number(code, 2);
  record += Number(payload.size(), 2) + payload;
  while (record.size() % 4 != 0) record += '\xEE';
  return record;
}

// A sample with this tick and code, all else zero.
std::string Sample(std::uint32_t tick, unsigned code) {
  return Number(tick, 4) + std::string(32, '\0') + Number(code, 2) + Number(3, 2);
}

std::string Batch(std::uint16_t count, const std::vector<std::uint32_t>& ticks) {
  std::string payload;
  for (const std::uint32_t tick : ticks) payload += Sample(tick, 1);
  payload.resize(400);
  return payload + Number(count, 2) + Number(0, 2);
}

// Writes down what it hears: one word for each call but GotRecord, which it counts.
struct Recorder : DSPDevice::Listener {
  std::ostringstream log;
  int records = 0;
  std::size_t lost_reads = 0;
  int lost_devices = 0;

  void LostRegisterReads(std::size_t count) override { lost_reads += count; }
  void LostDevice() override { ++lost_devices; }
  void GotRecord(const RecordTime&, std::uint16_t, const std::uint8_t*, std::uint16_t) override {
    ++records;
  }
  void GotUnknownMessage(std::uint16_t code, const std::uint8_t*, std::uint16_t length) override {
    log << "unknown:" << code << ":" << length << " ";
  }
  void GotBadCommand(const std::string& text) override { log << "bad:" << text << " "; }
  void GotLegacyData(LegacySample& sample) override {
    for (const float value : sample.values) log << value << ",";
    log << "flags:" << sample.flags << " ";
  }
  void GotWordListA(const RecordTime&, const std::vector<std::uint16_t>& words) override {
    log << "a:" << words.size() << ":" << words.back() << " ";
  }
  void GotWordListC(const std::vector<std::uint16_t>& words) override {
    log << "c:" << words.size() << " ";
  }
  void GotPong(const std::string& text) override {
    if (text == "throw") throw std::runtime_error("a listener's error");
    log << "pong:" << text << " ";
  }
  void GotVersion(const std::string& dsp, const std::string& fpga) override {
    log << "version:" << dsp << ":" << fpga << " ";
  }
  void GotCounter(std::uint32_t count) override { log << "counter:" << count << " "; }
  void GotRegisterValue(std::uint16_t address, std::uint16_t value) override {
    log << "register:" << address << "=" << value << " ";
  }
  void GotData(DataSample& sample) override {
    log << "data:" << sample.time << ":" << sample.code << ":" << sample.flags << " ";
  }
  void GotRawCapture(std::uint32_t, const std::uint8_t* bytes, std::uint32_t count) override {
    log << "raw:" << count << ":" << int{count == 0 ? 0 : bytes[count - 1]} << " ";
  }
};

// A device with this test at the other end of its link.
class Link {
 public:
  Link() : ends(Pair()), device(ends[0]) { device.SetListener(&listener); }
  ~Link() { close(ends[1]); }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  void Deliver(const std::string& packet) {
    ExpectEqual(write(ends[1], packet.data(), packet.size()), static_cast<ssize_t>(packet.size()));
    device.HandleRead();
  }
  std::string Sent() {
    device.HandleWrite();
    std::string packet(65536, '\0');
    const ssize_t count = recv(ends[1], packet.data(), packet.size(), MSG_DONTWAIT);
    packet.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return packet;
  }

 private:
  static std::array<int, 2> Pair() {
    std::array<int, 2> pair = {};
    ExpectEqual(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair.data()), 0);
    return pair;
  }
  std::array<int, 2> ends;

 public:
  Recorder listener;
  DSPDevice device;
};

void ReceiveCases() {
  std::string legacy;
  for (unsigned word = 0; word < 16; ++word) legacy += Number(word, 4);
  const struct {
    std::string packet;
    int records;
    std::string heard;
  } rows[] = {
      // Framing: several records, tails, payloads that run past the end.
      {Record(2, "one") + Record(2, "three") + std::string(11, 'x'), 2, "pong:one pong:three "},
      {Record(2, "one") + Record(2, "four").substr(0, 15), 1, "pong:one "},
      {Record(2, "throw") + Record(2, "one"), 1, ""},
      // Each code at its minimum and below.
      {Record(0x2009, Sample(1'500'000, 3)) + Record(0x2009, Sample(0, 3).substr(0, 39)), 2,
       "data:1.5:3:3072 "},
      {Record(0x200A, Batch(0, {1'000'000})) + Record(0x200A, Batch(11, {1'000'000})) +
           Record(0x200A, Batch(1, {1'000'000}).substr(0, 403)),
       3, ""},
      {Record(0x2010, Number(0, 4) + Number(396, 4) + std::string(396, 'z')), 1, "raw:396:122 "},
      {Record(0x2010, Number(0, 4) + Number(397, 4) + std::string(397, 'z')), 1, ""},
      {Record(0x2010, Number(0, 4) + Number(8, 4) + "zzz"), 1, ""},
      {Record(0x2010, std::string(8, '\0')) + Record(0x2010, "1234567"), 2, "raw:0:0 "},
      {Record(0x1006, "...." + Number(1, 2) + Number(0xABCD, 2) + "."), 1, "a:2:43981 "},
      {Record(0x1006, "........") + Record(0x1006, std::string(405, '.')), 2, ""},
      {Record(0x100E, ""), 1, "c:0 "},
      {Record(0x100C, Number(70000, 4)) + Record(0x100C, "..."), 2, "counter:70000 "},
      {Record(0x200E, Number(0x102, 2) + Number(9, 2)), 1, "register:258=9 "},
      {Record(0x0006, "1.2 3.4") + Record(0x0006, "1.2"), 2, "version:1.2:3.4 version:1.2: "},
      {Record(0x1001, "no"), 1, "bad:no "},
      {Record(0x1003, legacy) + Record(0x1003, legacy.substr(0, 63)), 2,
       "11,12,13,14,7,8,9,10,3,4,5,6,0,0,0,0,0,0,0,0,flags:40960 "},
      {Record(0x2001, "12"), 1, "unknown:8193:2 "},
  };
  for (const auto& row : rows) {
    Link link;
    link.Deliver(row.packet);
    ExpectEqual(link.listener.log.str(), row.heard, "heard of " + Hex(row.packet));
    ExpectEqual(link.listener.records, row.records, "records in " + Hex(row.packet));
  }
  // The last sample of a batch carries the stamp; the others keep their distance from it.
  constexpr std::uint32_t kLastTick = 0xFFFFFFFF;
  Link clocked;
  clocked.Deliver(Record(0x200A, Batch(2, {kLastTick - 2'999'999, kLastTick - 1'999'999}), 1997));
  clocked.Deliver(Record(0x200A, Batch(3, {kLastTick - 999'999, kLastTick, 999'999}), 2000));
  ExpectEqual(clocked.listener.log.str(),
              "data:1996:1:3072 data:1997:1:3072 "
              "data:1998:1:3072 data:1999:1:3072 data:2000:1:3072 ");
}

void CommandCases() {
  const std::string no_time(8, '\0');
  Link link;
  link.device.Send(0x1234, "12345", 5);
  const std::string sent = link.Sent();
  ExpectEqual(sent.substr(0, 17), no_time + Number(0x1234, 2) + Number(5, 2) + "12345");
  ExpectEqual(sent.size(), std::size_t{20}, "a payload of 5 bytes on the wire");
  link.device.Send(1, std::string(405, 'x').data(), 405);
  ExpectEqual(link.Sent(), no_time + Number(1, 2) + Number(404, 2) + std::string(404, 'x'));

  // Commands queued together leave in one write.
  link.device.RequestVersion();
  link.device.WriteRegister(0x0102, 0x0304);
  link.device.ReadRegister(0x0506);
  link.device.StartRawCapture(1000, 7);
  link.device.RedModulationOff();
  link.device.TestVectorOn();
  ExpectEqual(Hex(link.Sent()), Hex(Record(0x0005, "") + Record(0x200B, Number(0x03040102, 4)) +
                                    no_time + Number(0x200D, 2) + Number(2, 2) + Number(0x0506, 2) +
                                    Number(0, 2) + Record(0x200F, Number(1000, 8)) +
                                    Record(0x2014, Number(0, 4)) + Record(0x2018, Number(1, 4))));
}

void TimingAndBiasCases() {
  Link link;
  using Levels = std::initializer_list<std::array<std::uint16_t, 2>>;
  for (const auto& [asked, sent] : Levels{{7, 0}, {8, 16}, {65511, 65504}, {65535, 65520}}) {
    TimingConfig timing;
    timing.measure_farred = asked;
    link.device.SetTimingConfig(timing);
    ExpectEqual(Hex(link.Sent().substr(12 + 46, 2)), Hex(Number(sent, 2)),
                "far red of " + std::to_string(asked));
  }

  BiasConfig bias;
  bias.red = {0.5F, 2};
  bias.blue = {1, 1};
  bias.farred = {1, -1};
  bias.red_bias = 3375;
  bias.blue_bias = 2916;
  bias.modred_bias = 2048;
  bias.dac_blue_zero = 1;
  link.device.SetBiasConfig(bias);
  ExpectEqual(Hex(link.Sent().substr(12)),
              "0000003f00000000000000400000803f000000000000803f0000803f00000000000080bf"
              "0000803f0000000000000000000000000000000000000000000000002f0d640b00080000");

  link.device.AllOff();
  std::string off;
  for (int i = 0; i < 10; ++i) off += Number(1, 4);
  for (unsigned offset = 40; offset < 92; offset += 2) {
    const std::string ones = " 40 50 60 62 64 68 70 72 84 86 88 ";
    off += Number(ones.find(" " + std::to_string(offset) + " ") != std::string::npos ? 1 : 0, 2);
  }
  ExpectEqual(Hex(link.Sent()), Hex(Record(0x2008, "") + Record(0x2001, off)), "the safe state");
}

// Commands that do not fit, and the safe state, which goes out all the same.
void BoundCases() {
  constexpr std::size_t kReadSize = 16;
  Link link;
  std::size_t taken = 0;
  while (link.device.ReadRegister(1)) ++taken;
  ExpectEqual(taken, DSPDevice::Bounds::kRegisterQueue / kReadSize, "register reads in the queue");
  ExpectEqual(link.device.WriteRegister(1, 2), false, "a register write to a full queue");
  BiasConfig bias;
  bias.red_bias = 7;
  link.device.SetBiasConfig(bias);
  ExpectEqual(link.Sent().size(), DSPDevice::Bounds::kPacket, "bytes of the first packet");

  // The safe state goes alone; then comes what was in the queue and sets up the processor.
  link.device.AllOff();
  ExpectEqual(link.listener.lost_reads, taken - DSPDevice::Bounds::kPacket / kReadSize);
  const std::string safe = link.Sent();
  ExpectEqual(safe.substr(0, 12), Record(0x2008, ""));
  ExpectEqual(safe.size(), std::size_t{12 + 12 + 92}, "bytes of the safe state");
  link.device.HandleEvents(POLLOUT);
  const std::string owed = link.Sent();
  ExpectEqual(Hex(owed.substr(8, 2)), Hex(Number(0x2002, 2)));
  ExpectEqual(owed.size(), std::size_t{12 + 72}, "bytes of what follows");

  // A record that a short write has cut is finished first, whatever else is removed.
  CommandQueue queue;
  const std::array<std::uint8_t, 4> payload = {1, 2, 3, 4};
  for (std::uint16_t code = 1; code <= 3; ++code) queue.Push(code, payload, 48);
  ExpectEqual(queue.Push(4, payload, 48), false, "a record beyond the limit");
  ExpectEqual(queue.Packet(47).size(), std::size_t{32}, "whole records in 47 bytes");
  queue.Written(18);
  ExpectEqual(queue.Packet(31).size(), std::size_t{30}, "a rest and a record");
  int removed = 0;
  queue.RemoveWaiting([&](std::uint16_t code) { removed = removed * 10 + code; });
  ExpectEqual(removed, 3, "codes of what was removed");
  ExpectEqual(queue.Packet(47).size(), std::size_t{14}, "the rest of a record that was cut");
  queue.Written(14);
  ExpectEqual(queue.Empty(), true);
}

// A device that hangs up, and comes back under its path.
void HangUpCases() {
  const TemporaryDirectory directory;
  const std::string path = directory.Path() + "/device";
  const auto connect = [&] {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    grantpt(master);
    unlockpt(master);
    unlink(path.c_str());
    ExpectEqual(symlink(ptsname(master), path.c_str()), 0);
    return master;
  };
  const auto received = [](int master) {
    std::string bytes(4096, '\0');
    const ssize_t count = read(master, bytes.data(), bytes.size());
    return bytes.substr(0, count > 0 ? static_cast<std::size_t>(count) : 0);
  };
  StreamFile master(connect());
  DSPDevice device(path);
  struct termios raw = {};
  tcgetattr(device.GetFD(), &raw);
  cfmakeraw(&raw);
  tcsetattr(device.GetFD(), TCSANOW, &raw);
  Recorder listener;
  device.SetListener(&listener);
  device.SetOutputFormat(2);
  device.HandleWrite();
  ExpectEqual(Hex(received(master.GetFD())), Hex(Record(0x2013, Number(2, 4))));

  master.Close();
  device.HandleEvents(POLLIN | POLLHUP);
  ExpectEqual(int{device.GetEvents()}, 0, "events of a device that has hung up");
  ExpectEqual(listener.lost_devices, 1);
  ExpectEqual(device.ReadRegister(1), false, "a register read without a device");
  device.RedModulationOff();
  device.Expired();
  ExpectEqual(int{device.GetEvents()}, 0, "events while it is away");

  master.Attach(connect());
  tcsetattr(master.GetFD(), TCSANOW, &raw);
  device.Expired();
  device.HandleWrite();
  ExpectEqual(Hex(received(master.GetFD())),
              Hex(Record(0x2008, "") + Record(0x2013, Number(2, 4)) + Record(0x2014, Number(0, 4)) +
                  Record(0x0005, "")));
  device.SetListener(nullptr);
}

}  // namespace

void DSPDeviceCases() {
  ReceiveCases();
  CommandCases();
  TimingAndBiasCases();
  BoundCases();
  HangUpCases();
}
