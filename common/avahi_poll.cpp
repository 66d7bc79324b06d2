#include "common/avahi_poll.h"

#include <avahi-common/timeval.h>
#include <poll.h>

#include <algorithm>
#include <limits>

#include "common/poll_processor.h"

namespace {

unsigned short MaskOf(AvahiWatchEvent events) {
  return static_cast<unsigned short>(((events & AVAHI_WATCH_IN) != 0 ? POLLIN : 0) |
                                     ((events & AVAHI_WATCH_OUT) != 0 ? POLLOUT : 0));
}

}  // namespace

// Avahi names both types and leaves it to the owner of the loop to define them.
struct AvahiWatch : public PollItem {
  AvahiWatch(int fd, AvahiWatchEvent events, AvahiWatchCallback callback, void* data)
      : PollItem(MaskOf(events), true), fd(fd), callback(callback), data(data) {}
  // The callback may free this, in the middle of its events.
  void Free() {
    if (!in_events) {
      delete this;
      return;
    }
    Remove();
    freed = true;
  }

  int GetFD() override { return fd; }
  void HandleEvents(int revents) override {
    in_events = true;
    PollItem::HandleEvents(revents);
    in_events = false;
    if (freed) delete this;
  }
  void HandleRead() override { Deliver(AVAHI_WATCH_IN); }
  void HandleWrite() override { Deliver(AVAHI_WATCH_OUT); }
  const char* GetName() override { return "AvahiWatch"; }

  AvahiWatchEvent last_event = static_cast<AvahiWatchEvent>(0);

 private:
  void Deliver(AvahiWatchEvent event) {
    last_event = static_cast<AvahiWatchEvent>(0);
    callback(this, fd, event, data);
    last_event = event;
  }

  int fd;
  AvahiWatchCallback callback;
  void* data;
  bool in_events = false;
  bool freed = false;  // to be deleted after its events
};

struct AvahiTimeout : public PollTimer {
  AvahiTimeout(AvahiTimeoutCallback callback, void* data)
      : PollTimer(-1, true), callback(callback), data(data) {}

  // Avahi gives the time of day; null disarms. Avahi's own function reads it, since the library may
  // have been built with a smaller time_t than this program.
  void SetMoment(const struct timeval* when) {
    constexpr AvahiUsec kUsecPerMs = 1000;
    SetTimeout(when == nullptr
                   ? -1
                   : static_cast<int>(std::clamp<AvahiUsec>(-avahi_age(when) / kUsecPerMs, 0,
                                                            std::numeric_limits<int>::max())));
  }

  void Expired() override { callback(this, data); }
  const char* GetName() override { return "AvahiTimeout"; }

 private:
  AvahiTimeoutCallback callback;
  void* data;
};

const AvahiPoll* AvahiPollOfLoop() {
  static const AvahiPoll poll = {
      nullptr,
      [](const AvahiPoll*, int fd, AvahiWatchEvent events, AvahiWatchCallback callback,
         void* data) { return new AvahiWatch(fd, events, callback, data); },
      [](AvahiWatch* watch, AvahiWatchEvent events) { watch->SetEvents(MaskOf(events)); },
      [](AvahiWatch* watch) { return watch->last_event; },
      [](AvahiWatch* watch) { watch->Free(); },
      [](const AvahiPoll*, const struct timeval* when, AvahiTimeoutCallback callback, void* data) {
        auto* timeout = new AvahiTimeout(callback, data);
        timeout->SetMoment(when);
        return timeout;
      },
      [](AvahiTimeout* timeout, const struct timeval* when) {
        if (timeout != nullptr) timeout->SetMoment(when);
      },
      [](AvahiTimeout* timeout) { delete timeout; },
  };
  return &poll;
}
