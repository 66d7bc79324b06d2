// What it costs to deliver a row to a client, beside what a broker of the message bus takes to
// deliver the same row to a subscriber: processor time of the daemon and of mosquitto, each in a
// process of its own, user and system together.
//
// Both work in lock step: the next read of the processor is sent when all clients have the rows of
// the one before, and then the broker gets the same rows, each as a publication of its own, the
// next ones when all subscribers have them. Both take turns, block by block, so that both meet the
// same machine. Clients and subscribers are plain sockets of this program, and read alike: first
// the one that is served last, since on a network too nobody on this machine is woken for each
// send. All stay on one processor, of which a head has no more; what it takes to wake up another
// one would be most of a single row, and as much as chance will have it.

#include <mosquitto.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "benchmarks/cpu_time.h"
#include "benchmarks/figure.h"
#include "benchmarks/stream.h"
#include "client/bus.h"
#include "client/lines.h"

namespace {

void WaitFor(int socket, short events) {
  constexpr int kPatienceMs = 20'000;
  struct pollfd entry = {socket, events, 0};
  if (poll(&entry, 1, kPatienceMs) <= 0) throw std::runtime_error("waited in vain for rows");
}

// Sockets whose bytes are counted and thrown away.
class Readers {
 public:
  void Add(int socket) { sockets.push_back(socket); }

  // Takes so many bytes from each. The last one comes first: when it has been served so have the
  // others, who need not be woken for what they are sent.
  void Take(std::size_t bytes) const {
    for (auto socket = sockets.rbegin(); socket != sockets.rend(); ++socket)
      for (std::size_t left = bytes; left > 0;) {
        // The bytes of a stream that are not copied anywhere.
        const ssize_t got = recv(*socket, nullptr, left, MSG_TRUNC | MSG_DONTWAIT);
        if (got > 0)
          left -= static_cast<std::size_t>(got);
        else if (got < 0 && errno == EAGAIN)
          WaitFor(*socket, POLLIN);
        else
          throw std::runtime_error("a connection has ended");
      }
  }

 private:
  std::vector<int> sockets;
};

// A connection to the broker. Its socket is read elsewhere once it has subscribed.
class BusConnection {
 public:
  explicit BusConnection(int port) : client(mosquitto_new(nullptr, true, this)) {
    mosquitto_connect_callback_set(client.get(), [](mosquitto*, void* self, int) {
      static_cast<BusConnection*>(self)->answered = true;
    });
    mosquitto_subscribe_callback_set(client.get(),
                                     [](mosquitto*, void* self, int, int, const int*) {
                                       static_cast<BusConnection*>(self)->answered = true;
                                     });
    constexpr int kKeepAliveSeconds = 3600;
    Check(mosquitto_connect(client.get(), "::1", port, kKeepAliveSeconds));
    AwaitAnswer();
  }
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;
  ~BusConnection() = default;

  int Descriptor() const { return mosquitto_socket(client.get()); }

  void Subscribe(const std::string& topic) {
    Check(mosquitto_subscribe(client.get(), nullptr, topic.c_str(), 0));
    AwaitAnswer();
  }

  // Returns the bytes of the publication, as it reaches each subscriber.
  std::size_t Publish(const std::string& topic, const std::string& payload) {
    Check(mosquitto_publish(client.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()),
                            payload.data(), 0, false));
    while (mosquitto_want_write(client.get())) {
      WaitFor(Descriptor(), POLLOUT);
      Check(mosquitto_loop_write(client.get(), 1));
    }
    const std::size_t rest = 2 + topic.size() + payload.size();
    const std::size_t bytes_of_length = rest < 128 ? 1 : 2;  // as far as rows go
    return 1 + bytes_of_length + rest;
  }

 private:
  struct Destroy {
    void operator()(mosquitto* client) const { mosquitto_destroy(client); }
  };

  static void Check(int result) {
    if (result != MOSQ_ERR_SUCCESS) throw std::runtime_error(mosquitto_strerror(result));
  }
  void AwaitAnswer() {
    for (answered = false; !answered;) {
      WaitFor(Descriptor(), POLLIN);
      Check(mosquitto_loop_read(client.get(), 1));
    }
  }

  bool answered = false;
  std::unique_ptr<mosquitto, Destroy> client;
};

using Rows = std::vector<std::string>;  // of one read of the processor

class HeadSide {
 public:
  explicit HeadSide(int count) : head(root.Path(), Head::PlayedBy::kCaller) {
    for (int i = 0; i < count; ++i) clients.push_back(std::make_unique<LineClient>(head.Port()));
    for (const auto& client : clients) client->ReadLineThatBegins("DATADIAGH\t");
    for (std::size_t i = 0; i + 1 < clients.size(); ++i) others.Add(clients[i]->Descriptor());
  }

  double Cpu() const { return CpuSeconds(head.Pid()); }

  // The rows of one read, which every client has now.
  Rows Deliver(const Rate& rate) {
    RecordWriter records = ReadOf(Stream::kRealistic, rate, number);
    number += rate.in_read;
    head.SignalProcessor().Send(records);
    Rows rows;
    std::size_t bytes = 0;
    while (std::ssize(rows) < rate.in_read) {
      std::string line = clients.back()->ReadLine() + "\n";
      bytes += line.size();
      if (line.starts_with("DATA\t")) rows.push_back(std::move(line));
    }
    others.Take(bytes);
    return rows;
  }

 private:
  TemporaryDirectory root;
  Head head;
  std::vector<std::unique_ptr<LineClient>> clients;
  Readers others;
  int number = 0;
};

class BrokerSide {
 public:
  explicit BrokerSide(int count) : broker(root.Path(), port), publisher(port) {
    for (int i = 0; i < count; ++i) {
      connections.push_back(std::make_unique<BusConnection>(port));
      connections.back()->Subscribe(bus_topic::kData);
      subscribers.Add(connections.back()->Descriptor());
    }
  }

  double Cpu() { return CpuSeconds(broker.Process().Pid()); }

  void Deliver(const Rows& rows) {
    std::size_t bytes = 0;
    for (const std::string& row : rows) bytes += publisher.Publish(bus_topic::kData, row);
    subscribers.Take(bytes);
  }

 private:
  TemporaryDirectory root;
  FreePort port;
  Broker broker;
  BusConnection publisher;
  std::vector<std::unique_ptr<BusConnection>> connections;
  Readers subscribers;
};

struct Batch {
  const char* meaning;
  const Rate& rate;
  // Ratios that are to suffice, for one client and for more.
  double most_for_one;
  double most;
};
constexpr Batch kBatches[] = {
    {"single rows", k10Hz, 0.8, 0.6},
    {"10 rows a read", k1kHz, 0.4, 0.15},
    {"390 rows a read", k250kHz, 0.4, 0.15},
};

Figure Compare(HeadSide& head, BrokerSide& broker, const Batch& batch, int clients) {
  constexpr int kBlocks = 5;
  constexpr int kDeliveriesInBlock = 40'000;
  constexpr int kMostReadsInBlock = 400;
  const int reads =
      std::clamp(kDeliveriesInBlock / (clients * batch.rate.in_read), 1, kMostReadsInBlock);
  std::array<double, kBlocks> ours;
  std::array<double, kBlocks> theirs;
  for (std::size_t block = 0; block < kBlocks; ++block) {
    std::vector<Rows> delivered;
    double before = head.Cpu();
    while (std::ssize(delivered) < reads) delivered.push_back(head.Deliver(batch.rate));
    ours[block] = head.Cpu() - before;
    before = broker.Cpu();
    for (const Rows& rows : delivered) broker.Deliver(rows);
    theirs[block] = broker.Cpu() - before;
  }
  // The middle of the blocks of each: one of them may meet somebody else at work.
  const auto for_row = [&](std::array<double, kBlocks>& seconds) {
    std::ranges::nth_element(seconds, seconds.begin() + kBlocks / 2);
    return seconds[kBlocks / 2] * 1e6 / (reads * batch.rate.in_read * clients);
  };
  const std::string clients_text = std::to_string(clients);
  return {.name = "fan-out-" + std::to_string(batch.rate.in_read) + "-" + clients_text,
          .meaning = std::string(batch.meaning) + ", " + clients_text +
                     (clients == 1 ? " client" : " clients"),
          .kind = Figure::Kind::kTime,
          .unit = "us of CPU a row",
          .ours = for_row(ours),
          .other = "mosquitto",
          .theirs = for_row(theirs),
          .most = clients == 1 ? batch.most_for_one : batch.most};
}

// Here and in the programs that are started from here.
void StayOnOneProcessor() {
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  if (sched_setaffinity(0, sizeof one, &one) != 0)
    throw ErrnoError("unable to stay on one processor");
}

}  // namespace

int main() {
  try {
    StayOnOneProcessor();
    mosquitto_lib_init();
    for (const int clients : {1, 16, 128, 1000}) {
      HeadSide head(clients);
      BrokerSide broker(clients);
      for (const Batch& batch : kBatches) Tell(Compare(head, broker, batch, clients));
    }
    mosquitto_lib_cleanup();
  } catch (const std::exception& error) {
    std::cerr << "fan_out: " << error.what() << "\n";
    return 1;
  }
}
