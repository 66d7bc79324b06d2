#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

#include "bench/bench_instrument.h"
#include "bench/record_writer.h"
#include "common/errno_error.h"
#include "common/temporary_directory.h"
#include "fuzz/fuzz_target.h"
#include "leaf/lumet/lumet.h"

// The kernel knows who listens to its routes by this, and there are several heads in a process, and
// several such processes. Real numbers are below the step.
// NOLINTNEXTLINE(misc-definitions-in-headers): in place of the C library's; a target is one file
extern "C" pid_t getpid() noexcept {
  constexpr unsigned kStep = 1U << 22U;
  static auto latest = static_cast<unsigned>(syscall(SYS_getpid));
  latest = (latest + kStep) % (1U << 31U);
  return static_cast<pid_t>(latest);
}

// A whole head in this process, with files of its own. The target plays its processor, its clients
// and its bus. Nothing that they say ends a head, but for what orders it to: targets leave that
// out, since the loop of a process ends once.
class FuzzHead {
 public:
  FuzzHead() {
    std::array<int, 2> ends = {};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends.data()) != 0)
      throw ErrnoError("unable to make a link");
    for (const char* zone : {"UTC", "Europe/Berlin", "America/New_York"})
      directory.Write(std::string("zones/") + zone, "");
    instrument.zoneinfo = directory.Path() + "/zones";
    instrument.dsp_fd = ends[0];
    processor.Attach(ends[1]);
    instrument.console_port = 0;
    instrument.console_listens = [this](int listening) { port = listening; };
    machine.take_zone = [] {};
    lumet = std::make_unique<Listening>(instrument, machine);
    lumet->readconfig();
    Settle();
  }

  class Client {
   public:
    explicit Client(FuzzHead& head) : head(head) {
      SocketAddress address("::1");
      address.SetPort(head.port);
      connection.Create(AF_INET6, SOCK_STREAM, 0);
      connection.Connect(address);
      connection.SetNonBlocking();
      // So that no port stays taken for a minute.
      const struct linger at_once = {1, 0};
      setsockopt(connection.GetFD(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
      head.lumet->latest = nullptr;
      while (head.lumet->latest == nullptr) Check(head.lumet->Turn(1));
      there = head.lumet->latest;
    }
    // The head has taken all of it then.
    void Send(std::string_view text) {
      if (!there->IsOpen()) return;
      connection.SendSome(text.data(), text.size());
      struct pollfd entry = {there->GetFD(), POLLIN, 0};
      poll(&entry, 1, 1000);
      head.Settle();
    }
    // All that it has received, unless the head has closed it, at which answers may be lost.
    std::string Heard() {
      for (std::array<char, 65536> bytes; true;) {
        const ssize_t count = recv(connection.GetFD(), bytes.data(), bytes.size(), 0);
        if (count <= 0) return there->IsOpen() ? heard : "closed";
        heard.append(bytes.data(), static_cast<std::size_t>(count));
      }
    }

   private:
    FuzzHead& head;
    Socket connection;
    SocketClient* there = nullptr;
    std::string heard;
  };

  // A packet from the processor.
  void Send(std::span<const std::uint8_t> packet) {
    if (packet.empty()) return;
    if (send(processor.GetFD(), packet.data(), packet.size(), 0) < 0) std::abort();
    Settle();
  }
  // All commands that the processor has received.
  const std::string& Commands() {
    for (std::array<char, 65536> bytes; true;) {
      const ssize_t count = recv(processor.GetFD(), bytes.data(), bytes.size(), 0);
      if (count <= 0) return commands;
      commands.append(bytes.data(), static_cast<std::size_t>(count));
    }
  }
  void Publish(const std::string& topic, const std::string& payload) {
    lumet->OnMessage(0, topic, payload.data(), static_cast<int>(payload.size()), 0, false);
    Settle();
  }
  // The settings that it has saved.
  std::string Saved() const {
    std::string saved;
    for (const char* name : {"tavo.conf", "caltavo.conf", "factorytavo.conf", "hostname",
                             "network/interfaces", "sysconfig/ptpd", "timezone"})
      saved += directory.Read("etc/" + std::string(name)) + "\f";
    return saved;
  }
  // What moves comes to rest in a few turns, and saves take two.
  void Settle() {
    for (int i = 0; i < 4; ++i) Check(lumet->Turn(0));
    Commands();
  }

 private:
  struct Listening : Lumet {
    Listening(const Instrument& instrument, const Machine& machine)
        : Lumet(instrument, machine, true, nullptr, nullptr) {}
    void ClientConnected(SocketClient* client) override {
      Lumet::ClientConnected(client);
      latest = client;
    }
    SocketClient* latest = nullptr;
  };

  const Quiet quiet;
  const TemporaryDirectory directory;
  Instrument instrument = BenchInstrument(directory.Path());
  Machine machine = BenchMachine(instrument);
  int port = 0;
  StreamFileBase processor;
  std::string commands;
  std::unique_ptr<Listening> lumet;
};

// Whether `what` is the same of both heads; what is on its way gets two seconds.
template <class What>
bool ComesOutTheSame(FuzzHead& a, FuzzHead& b, What what) {
  for (int attempt = 0; attempt < 2000; ++attempt) {
    const std::string one = what(0);
    const std::string other = what(1);
    const auto differ = std::ranges::mismatch(one, other);
    if (differ.in1 == one.end() && differ.in2 == other.end()) return true;
    if (attempt == 1999)
      std::cerr << "After " << std::string(one.begin(), differ.in1) << "\none has "
                << std::string(differ.in1, one.end()) << "\nand the other "
                << std::string(differ.in2, other.end()) << "\n";
    a.Settle();
    b.Settle();
    if (attempt > 2) usleep(1000);
  }
  return false;
}
