#include "common/host_lookup.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "common/errno_error.h"

namespace {

HostLookup::Addresses LookUp(const std::string& host, int flags) {
  struct addrinfo hints = {};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags;
  struct addrinfo* first = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &first) != 0) return {};
  const std::unique_ptr<struct addrinfo, decltype(&freeaddrinfo)> owner(first, freeaddrinfo);
  HostLookup::Addresses addresses;
  for (const struct addrinfo* next = first; next != nullptr; next = next->ai_next) {
    std::array<char, NI_MAXHOST> text = {};
    if (getnameinfo(next->ai_addr, next->ai_addrlen, text.data(), text.size(), nullptr, 0,
                    NI_NUMERICHOST) == 0)
      addresses.emplace_back(text.data());
  }
  return addresses;
}

// While this lives, threads that are started take no signals.
class NoSignals {
 public:
  NoSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
  }
  ~NoSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
  NoSignals(const NoSignals&) = delete;
  NoSignals& operator=(const NoSignals&) = delete;

 private:
  sigset_t before;
};

}  // namespace

struct HostLookup::Answer {
  std::mutex lock;
  Addresses addresses;
};

HostLookup::HostLookup() : PollItem(0, true) {}
HostLookup::~HostLookup() = default;

void HostLookup::Start(const std::string& host, std::function<void(const Addresses&)> found) {
  Cancel();
  if (const Addresses numeric = LookUp(host, AI_NUMERICHOST); !numeric.empty()) {
    found(numeric);
    return;
  }
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw ErrnoError("HostLookup: pipe");
  done.Attach(ends[0]);
  answer = std::make_shared<Answer>();
  this->found = std::move(found);
  SetEvents(POLLIN);
  const NoSignals inherited;
  try {
    std::thread([host, shared = answer, end = ends[1]] {
      Addresses addresses = LookUp(host, 0);
      {
        const std::lock_guard guard(shared->lock);
        shared->addresses = std::move(addresses);
      }
      close(end);
    }).detach();
  } catch (const std::system_error&) {
    close(ends[1]);  // so the answer is that nobody knows
  }
}

void HostLookup::Cancel() {
  SetEvents(0);
  done.Close();
  answer.reset();
  found = nullptr;
}

void HostLookup::HandleEvents(int) {
  Addresses addresses;
  {
    const std::lock_guard guard(answer->lock);
    addresses = answer->addresses;
  }
  const auto tell = std::exchange(found, nullptr);
  Cancel();
  tell(addresses);
}
