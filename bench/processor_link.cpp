#include "bench/processor_link.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <ctime>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/environment_file.h"
#include "bench/settings_watch.h"
#include "common/errno_error.h"
#include "leaf/lumet/link/dsp_device.h"
#include "leaf/lumet/link/recording.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

// How long a silent processor waits for the end of its silence, microseconds.
constexpr std::uint64_t kLookAtFile = 100'000;
constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

// Simulated time, microseconds after the start.
class SimulatedClock {
 public:
  explicit SimulatedClock(double speed) : speed(speed) {
    clock_gettime(CLOCK_REALTIME, &start_of_day);
  }

  // At full speed there is no waiting: `due` is always now.
  std::uint64_t Now(std::uint64_t due) {
    if (std::isinf(speed)) return latest = std::max(latest, due);
    const std::chrono::duration<double, std::micro> since =
        std::chrono::steady_clock::now() - start;
    return latest = static_cast<std::uint64_t>(since.count() * speed);
  }
  std::uint64_t Latest() const { return latest; }
  // The system clock at the latest moment.
  RecordTime Stamp() const {
    constexpr std::uint64_t kMicros = 1'000'000;
    const std::uint64_t micros = latest + static_cast<std::uint64_t>(start_of_day.tv_nsec) / 1000;
    return {static_cast<std::uint32_t>(start_of_day.tv_sec) +
                static_cast<std::uint32_t>(micros / kMicros),
            static_cast<std::int32_t>(micros % kMicros * 1000)};
  }
  // How long to sleep until `due`; -1 for ever.
  int PauseMs(std::uint64_t due) {
    constexpr double kLongest = 1000;
    if (due == kNever) return -1;
    if (std::isinf(speed)) return 0;
    const std::uint64_t now = Now(due);
    const double pause = due > now ? static_cast<double>(due - now) / speed / 1000 + 1 : 1;
    return static_cast<int>(std::min(pause, kLongest));
  }

 private:
  double speed;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  struct timespec start_of_day = {};
  std::uint64_t latest = 0;
};

// The processor's end of the link.
class Link {
 public:
  Link(int descriptor, const LinkOptions& options)
      : descriptor(descriptor),
        clock(options.speed),
        packet(DSPDevice::Bounds::kPacket),
        settings(options.settings) {
    if (!options.record.empty()) recording.emplace(options.record);
  }

  // Waits until something can be done, `due` at the latest. True if a packet can be sent.
  bool Wait(bool has_packet, std::uint64_t due) {
    const auto wanted = static_cast<short>(has_packet ? POLLIN | POLLOUT : POLLIN);
    entry = {descriptor, wanted, 0};
    if (poll(&entry, 1, has_packet ? -1 : clock.PauseMs(due)) < 0 && errno != EINTR)
      throw ErrnoError("simulated processor: error calling poll()");
    return (entry.revents & POLLOUT) != 0;
  }

  // The share of packets that are damaged on their way.
  void SetDamage(double new_share) { damage = new_share; }

  // False if the other end is gone.
  bool Send(const Bytes& whole, bool& sent) {
    Bytes damaged;
    const bool hit = damage > 0 && std::bernoulli_distribution(damage)(random);
    if (hit) damaged = Damaged(whole);
    const Bytes& bytes = hit ? damaged : whole;
    const ssize_t count = send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    sent = count >= 0;
    if (sent) Record(RecordedPacket::kFromProcessor, bytes);
    return !Gone(count);
  }

  // Passes on a packet of commands if one has come. False if the other end is gone.
  template <class Handle>
  bool Receive(Handle handle) {
    if ((entry.revents & (POLLIN | POLLHUP)) == 0) return true;
    const ssize_t count = recv(descriptor, packet.data(), packet.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (count == 0 || Gone(count)) return false;
    if (count < 0) return true;
    // Its last commands are lost, and with them their answers.
    if (static_cast<std::size_t>(count) > packet.size())
      throw std::runtime_error("simulated processor: a packet of " + std::to_string(count) +
                               " bytes is more than the device takes");
    const auto bytes = std::span(packet).first(static_cast<std::size_t>(count));
    Record(RecordedPacket::kToProcessor, bytes);
    handle(bytes);
    return true;
  }

  // Whether the head has not read all that was sent.
  bool HasUnread() const {
    int bytes = 0;
    return ioctl(descriptor, SIOCOUTQ, &bytes) == 0 && bytes > 0;
  }

  SimulatedClock& Clock() { return clock; }

 private:
  // Whether a call failed for good.
  static bool Gone(ssize_t result) { return result < 0 && errno != EAGAIN && errno != EINTR; }

  // Some bytes are others, and the end may be missing.
  Bytes Damaged(Bytes bytes) {
    constexpr std::size_t kMostBytes = 20;
    for (std::size_t count = random() % kMostBytes + 1; count > 0; --count)
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    if (random() % 2 == 0) bytes.resize(random() % bytes.size() + 1);
    return bytes;
  }

  void Record(RecordedPacket::Direction direction, std::span<const std::uint8_t> bytes) {
    if (!recording) return;
    // Once the head speaks, it has read its settings.
    head_speaks |= direction == RecordedPacket::kToProcessor;
    if (head_speaks)
      for (const RecordedSettings& file : settings.Changed())
        recording->Write(clock.Latest(), RecordedPacket::kSettings, file.Bytes());
    recording->Write(clock.Latest(), direction, bytes);
  }

  int descriptor;
  SimulatedClock clock;
  Bytes packet;
  struct pollfd entry = {};
  std::optional<RecordingWriter> recording;
  SettingsWatch settings;
  bool head_speaks = false;
  double damage = 0;
  std::mt19937 random;
};

}  // namespace

void RunSimulatedDSP(int descriptor, SimulatedDSP& dsp, const LinkOptions& options) {
  Link link(descriptor, options);
  std::optional<EnvironmentFile> environment_file;
  if (!options.environment.empty()) environment_file.emplace(options.environment);
  ProcessorFaults faults;
  const auto surround = [&](const Surroundings& now) {
    dsp.SetEnvironment(now.environment);
    link.SetDamage(now.faults.damage);
    dsp.CountEvery(static_cast<std::uint64_t>(now.faults.count_every));
    if (now.faults.resets != faults.resets) dsp.Reset(link.Clock().Stamp());
    faults = now.faults;
  };
  auto& waiting = dsp.Output().packets;
  dsp.Start(link.Clock().Stamp());
  while (true) {
    if (environment_file)
      if (const auto changed = environment_file->Changed()) surround(*changed);
    // While the head is behind, time passes and samples are lost, as they are with the device.
    if (waiting.empty() && !faults.is_silent) {
      const std::uint64_t now = link.Clock().Now(dsp.NextRecordDue());
      dsp.Advance(link.Clock().Stamp(), now);
    }
    const std::uint64_t due =
        faults.is_silent ? link.Clock().Latest() + kLookAtFile : dsp.NextRecordDue();
    if (link.Wait(!waiting.empty() && !faults.is_silent, due)) {
      bool sent = false;
      if (!link.Send(waiting.front(), sent)) return;
      if (sent) waiting.pop_front();
    }
    if (!link.Receive([&](std::span<const std::uint8_t> packet) {
          dsp.HandleCommands(link.Clock().Stamp(), packet);
        }))
      return;
  }
}

void RunReplay(int descriptor, const std::string& recording, const LinkOptions& options,
               const ReplayListener& listener) {
  std::vector<RecordedPacket> packets = ReadRecording(recording);
  auto settings = SettingsAtStart(packets);
  std::erase_if(packets, [](const RecordedPacket& packet) {
    return packet.direction == RecordedPacket::kToProcessor;
  });
  Link link(descriptor, options);
  std::size_t next = 0;
  bool head_speaks = false;
  bool has_ended = false;
  while (true) {
    const bool done = next == packets.size();
    const bool is_settings = !done && packets[next].direction == RecordedPacket::kSettings;
    if (done && !has_ended && head_speaks && !link.HasUnread()) {
      has_ended = true;
      listener.ended();
    }
    // A head that does not speak yet can't be told anything either.
    const bool is_early = (done && !has_ended) || (is_settings && !head_speaks);
    constexpr std::uint64_t kSoon = 20'000;
    const std::uint64_t due = is_early ? link.Clock().Latest() + kSoon
                              : done   ? kNever
                                       : packets[next].elapsed;
    const bool ready = !done && !is_early && link.Clock().Now(due) >= due;
    if (ready && is_settings) {
      const RecordedSettings file = RecordedSettings::Of(packets[next++]);
      std::string& known = settings[file.name];
      if (known != file.text) listener.settings_changed(file);
      known = file.text;
      continue;
    }
    if (link.Wait(ready, due)) {
      bool sent = false;
      if (!link.Send(packets[next].bytes, sent)) return;
      if (sent) ++next;
    }
    if (!link.Receive([&](std::span<const std::uint8_t>) { head_speaks = true; })) return;
  }
}
